#pragma once

#include "base/Json.h"

#include <exception>
#include <string>

namespace kestrel::index {

/// A refusal that becomes an error answer of Elasticsearch's shape.
class ApiError : public std::exception {
public:
    /// details are further members of the error object, such as "index".
    ApiError(int status, std::string type, std::string reason, Json details = Json::object());

    const char* what() const noexcept override { return mReason.c_str(); }
    int status() const { return mStatus; }
    const std::string& type() const { return mType; }

    /// The same refusal as a search reports it: wrapped in the failure of the index that was searched.
    ApiError asSearchFailure(const std::string& index) const;

    /// {"error": {"root_cause": [...], "type", "reason", ...}, "status"}
    Json body() const;
    /// {"type", "reason", ...}: as an item of a bulk answer carries it.
    Json cause() const;

private:
    int mStatus;
    std::string mType;
    std::string mReason;
    Json mDetails;
    Json mRootCause; ///< null: the error is its own root cause
};

ApiError indexNotFound(const std::string& index);
ApiError illegalArgument(const std::string& reason);
ApiError parsingError(const std::string& reason);

} // namespace kestrel::index
