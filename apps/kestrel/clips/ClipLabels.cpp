#include "apps/kestrel/clips/ClipLabels.h"

#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <sys/stat.h>

namespace kestrel {

ClipLabels::ClipLabels(const Home& home) {
    for (const CatalogueClip& clip : Catalogue(home).clips()) {
        add(clip.id, clip.name);
        if (!clip.path.empty()) mPaths[clip.id] = clip.path;
    }
}

void ClipLabels::add(const std::string& clip, const std::string& name) {
    mClipsOfName[name].insert(clip);
}

std::string ClipLabels::path(const std::string& clip) const {
    const auto found = mPaths.find(clip);
    return found == mPaths.end() ? "" : found->second;
}

std::string ClipLabels::label(const std::string& clip, const std::string& name) const {
    const auto sameName = mClipsOfName.find(name);
    if (sameName == mClipsOfName.end() || sameName->second.size() < 2) return name;
    const std::string file = path(clip);
    return file.empty() ? fmt::format("{} (clip {})", name, shortIdentifier(clip)) : file + dayOf(file);
}

std::string dayOf(const std::string& path) {
    struct stat status {};
    std::tm day{};
    if (path.empty() || ::stat(path.c_str(), &status) != 0 ||
        ::localtime_r(&status.st_mtime, &day) == nullptr)
        return "";
    return fmt::format(" ({:%Y-%m-%d})", day);
}

} // namespace kestrel
