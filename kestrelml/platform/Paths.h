#pragma once

/// @file
/// Paths, as strings and on disk. Strings that cross the exported interface are UTF-8 on every platform.

#include <filesystem>
#include <string>

namespace kestrelml::platform {

/// What separates the parts of a path on this platform.
constexpr char pathSeparator() {
#ifdef _WIN32
    return '\\';
#else
    return '/';
#endif
}

/// The path that a UTF-8 string names.
std::filesystem::path pathFromUtf8(const std::string& text);

/// `folder` ending in a separator; an empty one, which means the working directory, stays empty.
std::string withTrailingSeparator(std::string folder);

/// The path with "/" between its parts, which Python understands on every platform.
std::string withForwardSlashes(std::string path);

/// Folder of the executable file of this process, its symbolic links resolved.
std::filesystem::path executableDirectory();

} // namespace kestrelml::platform
