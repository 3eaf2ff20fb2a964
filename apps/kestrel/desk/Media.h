#pragma once

#include "apps/kestrel/home/Catalogue.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace kestrel::desk {

/// Where the media of the clips in the catalogue lie.
class Media {
public:
    explicit Media(const Home& home);

    /// Nothing for a clip that the catalogue does not know.
    std::optional<std::filesystem::path> fileOf(const std::string& clip);
    /// @throws HttpError (404) when it is unknown or no longer there.
    std::filesystem::path require(const std::string& clip);

private:
    std::filesystem::path mCatalogue;
    Home mHome;
    std::mutex mMutex;
    std::optional<std::filesystem::file_time_type> mRead;
    std::map<std::string, std::filesystem::path> mFiles;
};

/// Content type of a media file by its name; never one that a browser takes for a page or a script.
std::string mediaType(const std::filesystem::path& file);

} // namespace kestrel::desk
