#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace kestrel::index {

/// Keeps the order of keys, so that a document that a script changed comes back in the order in which it was
/// sent.
using Json = nlohmann::ordered_json;

/// Parses a request body or document. Text that is not JSON, is nested too deeply or holds an object with too
/// many keys is refused with an ApiError of status 400 before anything is built from it.
Json parseJson(std::string_view text);

/// The text as a JSON string, quotation marks included. Invalid UTF-8 is replaced.
std::string jsonString(std::string_view text);

} // namespace kestrel::index
