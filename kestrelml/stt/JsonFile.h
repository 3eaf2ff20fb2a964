#pragma once

/// @file
/// Reading the JSON files of a model folder.

#include <Poco/JSON/Object.h>

#include <filesystem>

namespace kestrelml::stt {

/// The object that a JSON file holds.
/// @throws Poco::Exception that names the file when it cannot be read, is not JSON, or holds no object.
Poco::JSON::Object::Ptr readJsonFile(const std::filesystem::path& path);

} // namespace kestrelml::stt
