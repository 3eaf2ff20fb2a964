#include "base/ApiError.h"

#include "base/Utf8.h"

#include <fmt/format.h>

#include <utility>

namespace kestrel::index {

namespace {

/// A reason may quote a value as long as the request itself.
constexpr std::size_t kReasonBytes = 4000;

} // namespace

ApiError::ApiError(int status, std::string type, std::string reason, Json details)
    : mStatus(status), mType(std::move(type)), mReason(shortened(std::move(reason), kReasonBytes)),
      mDetails(std::move(details)) {
}

ApiError ApiError::asSearchFailure(const std::string& index) const {
    const Json shard = {{"shard", 0}, {"index", index}, {"reason", cause()}};
    ApiError wrapped(mStatus, "search_phase_execution_exception", "all shards failed",
                     {{"phase", "query"}, {"grouped", true}, {"failed_shards", Json::array({shard})}});
    wrapped.mRootCause = cause();
    return wrapped;
}

Json ApiError::cause() const {
    Json cause = {{"type", mType}, {"reason", mReason}};
    cause.update(mDetails);
    return cause;
}

Json ApiError::body() const {
    Json error = {{"root_cause", Json::array({mRootCause.is_null() ? cause() : mRootCause})}};
    error.update(cause());
    return {{"error", std::move(error)}, {"status", mStatus}};
}

ApiError indexNotFound(const std::string& index) {
    return {404,
            "index_not_found_exception",
            fmt::format("no such index [{}]", index),
            {{"resource.type", "index_or_alias"},
             {"resource.id", index},
             {"index_uuid", "_na_"},
             {"index", index}}};
}

ApiError illegalArgument(const std::string& reason) {
    return {400, "illegal_argument_exception", reason};
}

ApiError parsingError(const std::string& reason) {
    return {400, "parsing_exception", reason};
}

} // namespace kestrel::index
