#pragma once

/// @file
/// Reading the index service's answers. What is missing or of another kind is thrown as a Poco exception that
/// names the key. Internal.

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kestrelml::detail {

Poco::Dynamic::Var memberOf(const Poco::JSON::Object& object, const std::string& key);
std::string textOf(const Poco::JSON::Object& object, const std::string& key);
std::int32_t integerOf(const Poco::JSON::Object& object, const std::string& key);
Poco::JSON::Object::Ptr objectOf(const Poco::JSON::Object& object, const std::string& key);
Poco::JSON::Array::Ptr arrayOf(const Poco::JSON::Object& object, const std::string& key);
std::vector<std::string> textsOf(const Poco::JSON::Object& object, const std::string& key);

Poco::JSON::Object::Ptr objectAt(const Poco::JSON::Array& array, std::size_t position);
/// Beyond the end it throws std::out_of_range.
std::int32_t integerAt(const Poco::JSON::Array& array, std::size_t position);

/// The hits of a search: answer's "hits" object, its "hits" array.
Poco::JSON::Array::Ptr hitsOf(const Poco::JSON::Object& answer);
/// The one hit of a search that must have one; null when it has none, several, or no hits at all.
Poco::JSON::Object::Ptr onlyHitOf(const Poco::JSON::Object& answer);
/// The stored document of a hit.
Poco::JSON::Object::Ptr sourceOf(const Poco::JSON::Object& hit);

} // namespace kestrelml::detail
