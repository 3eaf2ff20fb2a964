#pragma once

#include "base/Json.h"

#include <exception>
#include <string>

namespace kestrel::index {

/// An error that is answered in Elasticsearch's format.
class ApiError : public std::exception {
public:
    /// details are further members of the error object, such as "index".
    ApiError(int status, std::string type, std::string reason, Json details = Json::object());

    const char* what() const noexcept override { return mReason.c_str(); }
    int status() const { return mStatus; }
    const std::string& type() const { return mType; }

    /// The same error as a search reports it: wrapped in the failure of the index that was searched.
    ApiError asSearchFailure(const std::string& index) const;

    /// {"error": {"root_cause": [...], "type", "reason", ...}, "status"}
    Json body() const;
    /// {"type", "reason", ...}: the error of an item in a bulk answer.
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
