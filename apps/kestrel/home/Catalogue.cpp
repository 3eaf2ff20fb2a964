#include "apps/kestrel/home/Catalogue.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/home/Identity.h"

#include <Poco/Exception.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr std::size_t kIdentifierLength = 64;

Poco::JSON::Object::Ptr toJson(const CatalogueClip& clip) {
    auto object = jsonObject();
    object->set("clip", clip.id);
    object->set("name", clip.name);
    object->set("path", clip.path);
    object->set("project", clip.project);
    object->set("language", clip.language);
    return object;
}

CatalogueClip fromJson(const Poco::JSON::Object& object) {
    return {object.getValue<std::string>("clip"), object.getValue<std::string>("name"),
            object.getValue<std::string>("path"), object.getValue<std::string>("project"),
            object.getValue<std::string>("language")};
}

bool isIdentifierPart(const std::string& text) {
    return text.size() >= kShortestPrefix && text.size() <= kIdentifierLength &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

template <typename Condition>
std::vector<CatalogueClip> select(const std::vector<CatalogueClip>& clips, const std::string& project,
                                  Condition condition) {
    std::vector<CatalogueClip> chosen;
    std::copy_if(clips.begin(), clips.end(), std::back_inserter(chosen), [&](const CatalogueClip& clip) {
        return (project.empty() || clip.project == project) && condition(clip);
    });
    return chosen;
}

} // namespace

Catalogue::Catalogue(const Home& home) : mFile(home.catalogueFile()) {
}

std::vector<CatalogueClip> Catalogue::clips() const {
    std::vector<CatalogueClip> clips;
    if (!fs::exists(mFile)) return clips;
    try {
        auto list = readJson(mFile)->getArray("clips");
        for (std::size_t i = 0; list && i < list->size(); ++i)
            clips.push_back(fromJson(*list->getObject(static_cast<unsigned>(i))));
    } catch (const Poco::Exception& error) {
        throw Failure(fmt::format("{} is damaged: {}", mFile.string(), error.displayText()));
    }
    return clips;
}

template <typename Change>
void Catalogue::change(Change change) const {
    const FileLock lock = FileLock::take(mFile.string() + ".lock");
    std::vector<CatalogueClip> all = clips();
    change(all);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const CatalogueClip& one : all)
        list->add(toJson(one));
    auto document = jsonObject();
    document->set("clips", list);
    replaceFile(mFile, toText(document), 0600);
}

void Catalogue::add(const CatalogueClip& clip) const {
    change([&](std::vector<CatalogueClip>& all) {
        std::erase_if(
            all, [&](const CatalogueClip& old) { return old.id == clip.id && old.project == clip.project; });
        all.push_back(clip);
    });
}

void Catalogue::addMissing(const std::vector<CatalogueClip>& clips) const {
    change([&](std::vector<CatalogueClip>& all) {
        std::set<std::pair<std::string, std::string>> known;
        for (const CatalogueClip& clip : all)
            known.emplace(clip.id, clip.project);
        std::copy_if(clips.begin(), clips.end(), std::back_inserter(all),
                     [&](const CatalogueClip& clip) { return known.emplace(clip.id, clip.project).second; });
    });
}

void Catalogue::remove(const std::string& clip, const std::string& project) const {
    change([&](std::vector<CatalogueClip>& all) {
        std::erase_if(all, [&](const CatalogueClip& old) {
            return old.id == clip && (project.empty() || old.project == project);
        });
    });
}

std::vector<CatalogueClip> Catalogue::find(const std::string& text, const std::string& project) const {
    const std::vector<CatalogueClip> all = clips();
    auto found = select(all, project, [&](const CatalogueClip& clip) { return clip.name == text; });
    if (found.empty() && isIdentifierPart(text))
        found = select(all, project, [&](const CatalogueClip& clip) { return clip.id.starts_with(text); });
    if (!found.empty()) return found;
    std::error_code error;
    if (fs::is_regular_file(text, error)) {
        const std::string identifier = clipIdentifier(text);
        return select(all, project, [&](const CatalogueClip& clip) { return clip.id == identifier; });
    }
    const std::string path = fs::absolute(text, error).lexically_normal().string();
    return select(all, project, [&](const CatalogueClip& clip) { return clip.path == path; });
}

} // namespace kestrel
