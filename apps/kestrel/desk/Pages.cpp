#include "apps/kestrel/desk/Pages.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"

#include <fmt/format.h>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

const std::map<std::string, const char*> kTypes{
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
};

} // namespace

Pages::Pages(const fs::path& folder) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const auto type = kTypes.find(entry.path().extension().string());
        if (type != kTypes.end())
            mPages["/" + entry.path().filename().string()] = {type->second, readFile(entry.path())};
    }
    const auto start = mPages.find("/index.html");
    if (start == mPages.end())
        throw Failure(fmt::format("the desk's pages are missing: they belong in {}", folder.string()));
    mPages["/"] = start->second;
}

void Pages::send(Exchange& exchange) const {
    const std::string target = exchange.request.getURI();
    const auto page = mPages.find(target.substr(0, target.find('?')));
    if (page == mPages.end()) throw HttpError(404, "there is no such page");
    exchange.response.setContentType(page->second.type);
    exchange.response.sendBuffer(page->second.text.data(), page->second.text.size());
}

} // namespace kestrel::desk
