#include "apps/kestrel/media/MediaFolder.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

/// Playlists count as media to FFmpeg, but the files that they list are in the folder themselves.
bool hasMediaName(const fs::path& path) {
    const AVOutputFormat* format = av_guess_format(nullptr, path.filename().c_str(), nullptr);
    return format != nullptr && format->audio_codec != AV_CODEC_ID_NONE &&
           (format->flags & AVFMT_NOFILE) == 0;
}

void addFolder(const fs::path& folder, MediaFolder& found) {
    std::vector<fs::path> files;
    std::vector<fs::path> folders;
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    while (!error && entry != fs::directory_iterator()) {
        std::error_code ignored;
        if (!isHidden(entry->path())) {
            if (entry->is_directory(ignored) && !entry->is_symlink(ignored))
                folders.push_back(entry->path());
            else if (entry->is_regular_file(ignored) && hasMediaName(entry->path()))
                files.push_back(entry->path());
        }
        entry.increment(error);
    }
    if (error) found.unreadable.push_back(folder);
    std::sort(files.begin(), files.end());
    std::sort(folders.begin(), folders.end());
    found.files.insert(found.files.end(), files.begin(), files.end());
    for (const fs::path& inner : folders)
        addFolder(inner, found);
}

} // namespace

MediaFolder listMediaFolder(const fs::path& folder) {
    MediaFolder found;
    addFolder(folder, found);
    return found;
}

} // namespace kestrel
