#include "apps/kestrel/desk/Media.h"

#include "apps/kestrel/desk/Http.h"

#include <Poco/String.h>
#include <fmt/format.h>

namespace fs = std::filesystem;

namespace kestrel::desk {

Media::Media(const Home& home) : mCatalogue(home.catalogueFile()), mHome(home) {
}

std::optional<fs::path> Media::fileOf(const std::string& clip) {
    std::error_code error;
    const fs::file_time_type changed = fs::last_write_time(mCatalogue, error);
    if (error) return std::nullopt; // nothing was ever transcribed here
    const std::scoped_lock lock(mMutex);
    if (mRead != changed) {
        mFiles.clear();
        for (const CatalogueClip& known : Catalogue(mHome).clips())
            if (!known.path.empty()) mFiles[known.id] = known.path;
        mRead = changed;
    }
    const auto found = mFiles.find(clip);
    return found == mFiles.end() ? std::nullopt : std::optional(found->second);
}

fs::path Media::require(const std::string& clip) {
    const auto file = fileOf(clip);
    if (!file) throw HttpError(404, "the media of this clip is not known here: it was transcribed elsewhere");
    std::error_code error;
    if (!fs::is_regular_file(*file, error))
        throw HttpError(404,
                        fmt::format("the media file is no longer at {}: put it back, or transcribe it from "
                                    "where it is now, which keeps the transcript",
                                    file->string()));
    return *file;
}

std::string mediaType(const fs::path& file) {
    static const std::map<std::string, const char*> types{
        {".mp4", "video/mp4"},  {".m4v", "video/mp4"},        {".mov", "video/mp4"},  {".webm", "video/webm"},
        {".ogv", "video/ogg"},  {".mkv", "video/x-matroska"}, {".mp3", "audio/mpeg"}, {".m4a", "audio/mp4"},
        {".aac", "audio/aac"},  {".wav", "audio/wav"},        {".ogg", "audio/ogg"},  {".oga", "audio/ogg"},
        {".opus", "audio/ogg"}, {".flac", "audio/flac"},
    };
    const auto found = types.find(Poco::toLower(file.extension().string()));
    return found == types.end() ? "application/octet-stream" : found->second;
}

} // namespace kestrel::desk
