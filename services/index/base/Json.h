#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace kestrel::index {

/// Keeps the order of keys, so that a document changed by a script is returned in the order in which it was
/// sent. Documents and bodies are both read into this type, which updates and scripts can change.
using Json = nlohmann::ordered_json;

/// Parses a request body. Throws an ApiError with status 400 when it is not JSON, nested too deeply, or has
/// too many keys in one object or too many values.
Json parseJson(std::string_view text);

/// As parseJson, for documents: integers beyond 64 bits keep their digits (isWideInteger).
Json parseDocument(std::string_view text);

/// Parses a stored document, without limits. Throws Json::exception when it is damaged.
Json parseStored(std::string_view text);

/// The text of a changed document. Throws the ApiError that parseDocument would throw for it.
std::string documentText(const Json& document);

/// Whether the value is an integer beyond 64 bits, and its digits. Only documents hold such values.
bool isWideInteger(const Json& value);
std::string_view wideDigits(const Json& value);

/// The value as JSON.
std::string valueText(const Json& value);

/// The text as a JSON string, quotation marks included. Invalid UTF-8 is replaced.
std::string jsonString(std::string_view text);

} // namespace kestrel::index
