#pragma once

/// @file
/// A folder for files that only the user may see.

#include <filesystem>
#include <string>

namespace kestrelml::platform {

/// The folder `name` of this user in the system's temporary folder, created when missing, which only its
/// owner can read.
/// @throws std::filesystem::filesystem_error when it cannot be created, or when something stands in its place
/// that another user may have put there: a link, a folder of theirs, or one that others can read.
std::filesystem::path privateTemporaryFolder(const std::string& name);

} // namespace kestrelml::platform
