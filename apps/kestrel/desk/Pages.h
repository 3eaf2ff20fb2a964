#pragma once

#include "apps/kestrel/desk/Http.h"

#include <filesystem>
#include <map>
#include <string>

namespace kestrel::desk {

/// The files that make up the pages, read once: no path of a request ever reaches the file system.
class Pages {
public:
    /// @throws Failure when there are none in the folder.
    explicit Pages(const std::filesystem::path& folder);

    /// @throws HttpError (404) when there is no such page.
    void send(Exchange& exchange) const;

private:
    struct Page {
        const char* type = "";
        std::string text;
    };
    std::map<std::string, Page> mPages; ///< By path.
};

} // namespace kestrel::desk
