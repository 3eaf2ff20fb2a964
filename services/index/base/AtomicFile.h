#pragma once

#include <filesystem>
#include <string_view>

namespace kestrel::index {

/// Writes the file whole or not at all, readable by its owner alone when secret.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content, bool secret);

} // namespace kestrel::index
