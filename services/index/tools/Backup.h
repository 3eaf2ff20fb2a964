#pragma once

#include "tools/Check.h"

#include <filesystem>

namespace kestrel::index {

/// Copies the state of a data folder at one moment, with its keys, into a new folder, which can be served or
/// restored from. The service may be running. The documents get their name in the copy once it is complete.
/// Throws DataFolderError when the target is not empty or the source cannot be read.
void backUp(const std::filesystem::path& data, const std::filesystem::path& target, const Progress& progress);

/// Checks a backup and copies it into a new data folder. Throws DataFolderError when the backup is damaged or
/// the folder is not empty.
void restore(const std::filesystem::path& backup, const std::filesystem::path& data,
             const Progress& progress);

} // namespace kestrel::index
