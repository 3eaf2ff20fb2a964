#pragma once

#include "tools/Check.h"

#include <filesystem>

namespace kestrel::index {

/// Copies the documents of a data folder, as they are at one moment, and its keys into a new folder, which
/// can be served itself or be restored from. The service may be running and go on writing. The documents get
/// their name in the copy when everything is there. Throws DataFolderError when the target is not empty or
/// the source cannot be read.
void backUp(const std::filesystem::path& data, const std::filesystem::path& target, const Progress& progress);

/// Copies a backup into a new data folder after checking it. Throws DataFolderError when the backup is
/// damaged or the folder is not empty.
void restore(const std::filesystem::path& backup, const std::filesystem::path& data,
             const Progress& progress);

} // namespace kestrel::index
