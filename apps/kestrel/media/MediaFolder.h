#pragma once

#include <filesystem>
#include <vector>

namespace kestrel {

/// The media files in a folder and the folders in it.
struct MediaFolder {
    std::vector<std::filesystem::path> files;      ///< By name, those of a folder before its folders.
    std::vector<std::filesystem::path> unreadable; ///< Folders that cannot be listed.
};

/// Looks for files whose names are those of a format with audio, as FFmpeg knows them. Hidden files are left
/// out, links to folders are not followed.
MediaFolder listMediaFolder(const std::filesystem::path& folder);

} // namespace kestrel
