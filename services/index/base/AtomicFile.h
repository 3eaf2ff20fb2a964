#pragma once

#include <filesystem>
#include <string_view>

namespace kestrel::index {

/// Writes the whole file or nothing, readable by its owner only. Once it returns, the file survives a power
/// cut. Throws std::system_error.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content);

/// Renames a file whose content is on the disk. Once it returns, the new name survives a power cut. Throws
/// std::system_error.
void renameDurably(const std::filesystem::path& from, const std::filesystem::path& to);

/// Synchronises the folder itself: which files were created, renamed or removed in it. Throws
/// std::system_error.
void syncFolder(const std::filesystem::path& folder);

} // namespace kestrel::index
