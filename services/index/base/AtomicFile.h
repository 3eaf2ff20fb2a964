#pragma once

#include <filesystem>
#include <string_view>

namespace kestrel::index {

/// Writes the file whole or not at all, readable by its owner alone. When it returns the file is there after
/// a power cut too. Throws std::system_error.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content);

/// Brings what was made, renamed or removed in the folder to the disk. Throws std::system_error.
void syncFolder(const std::filesystem::path& folder);

} // namespace kestrel::index
