#pragma once

#include <filesystem>
#include <string_view>

namespace kestrel::index {

/// Writes the file whole or not at all, readable by its owner alone. When it returns the file is there after
/// a power cut too. Throws std::system_error.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content);

/// Gives a file that is on the disk its final name. When it returns the name survives a power cut too. Throws
/// std::system_error.
void renameDurably(const std::filesystem::path& from, const std::filesystem::path& to);

/// Writes the folder itself to the disk: which files were created, renamed or removed in it. Throws
/// std::system_error.
void syncFolder(const std::filesystem::path& folder);

} // namespace kestrel::index
