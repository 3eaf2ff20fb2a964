#pragma once

#include "base/ApiError.h"
#include "base/Json.h"
#include "security/Privileges.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kestrel::index {

struct Request {
    std::string method;
    std::string uri;                           ///< as it was sent
    std::vector<std::string> path;             ///< decoded, without empty parts ("//")
    std::map<std::string, std::string> params; ///< of the query
    std::string contentType;
    std::string authorization;
    bool hasBody = false; ///< received already or not
    std::string body;
    std::shared_ptr<const Principal> user;

    /// The parsed body; null when it is empty.
    Json json() const { return body.empty() ? Json() : parseJson(body); }
    std::string param(const std::string& name, const std::string& otherwise = {}) const {
        const auto found = params.find(name);
        return found == params.end() ? otherwise : found->second;
    }
};

struct Answer {
    int status = 200;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;

    /// Invalid UTF-8, which an error may quote, is replaced.
    static Answer json(const Json& content, int status = 200) {
        return {status, content.dump(-1, ' ', false, Json::error_handler_t::replace), {}};
    }
};

/// The error as an answer.
Answer errorAnswer(const ApiError& error);

/// Splits a request target into path and query. Throws an ApiError when it is malformed.
void parseTarget(const std::string& target, Request& request);

} // namespace kestrel::index
