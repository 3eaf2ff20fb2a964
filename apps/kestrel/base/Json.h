#pragma once

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kestrel {

/// An empty object that keeps its members in the order in which they are set.
Poco::JSON::Object::Ptr jsonObject();
/// @throws Failure naming the file when it is not a JSON object.
Poco::JSON::Object::Ptr readJson(const std::filesystem::path& file);
template <typename Value>
Poco::JSON::Array::Ptr jsonArray(const std::vector<Value>& values) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const Value& value : values)
        list->add(value);
    return list;
}
/// The texts of an array in an object; none when it has no such array.
std::vector<std::string> textsOf(const Poco::JSON::Object& object, const std::string& name);
std::string toText(const Poco::JSON::Object::Ptr& object);
/// A score with the digits that a 32-bit float really has.
double roundedScore(float score);

} // namespace kestrel
