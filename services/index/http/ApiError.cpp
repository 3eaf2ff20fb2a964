#include "http/ApiError.h"

#include <fmt/format.h>

#include <utility>

namespace kestrel {

ApiError::ApiError(int status, std::string type, std::string reason, Json details)
    : status_(status), type_(std::move(type)), reason_(std::move(reason)), details_(std::move(details)) {
}

ApiError ApiError::asSearchFailure(const std::string& index) const {
    const Json shard = {{"shard", 0}, {"index", index}, {"reason", cause()}};
    ApiError wrapped(status_, "search_phase_execution_exception", "all shards failed",
                     {{"phase", "query"}, {"grouped", true}, {"failed_shards", Json::array({shard})}});
    wrapped.rootCause_ = cause();
    return wrapped;
}

Json ApiError::cause() const {
    Json cause = {{"type", type_}, {"reason", reason_}};
    cause.update(details_);
    return cause;
}

Json ApiError::body() const {
    Json error = {{"root_cause", Json::array({rootCause_.is_null() ? cause() : rootCause_})}};
    error.update(cause());
    return {{"error", std::move(error)}, {"status", status_}};
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

} // namespace kestrel
