#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace kestrel::index {

/// Keeps the order of keys, so that a document that a script changed comes back in the order in which it was
/// sent.
using Json = nlohmann::ordered_json;

/// Parses a request body. Text that is not JSON, is nested too deeply or holds an object with too many keys
/// is refused with an ApiError of status 400 before anything is built from it.
Json parseJson(std::string_view text);

/// As parseJson, for documents: whole numbers that 64 bits do not hold keep their digits (isWideInteger).
Json parseDocument(std::string_view text);

/// Parses a document that was accepted before, whatever today's limits are. Throws Json::exception when it is
/// damaged.
Json parseStored(std::string_view text);

/// The text of a document from parseDocument or parseStored that was changed since. Throws the ApiError that
/// parseDocument would throw for it.
std::string documentText(const Json& document);

/// Whether the value is a whole number beyond 64 bits, and its digits. Only documents hold such values.
bool isWideInteger(const Json& value);
std::string_view wideDigits(const Json& value);

/// The value as it is written in JSON.
std::string valueText(const Json& value);

/// The text as a JSON string, quotation marks included. Invalid UTF-8 is replaced.
std::string jsonString(std::string_view text);

} // namespace kestrel::index
