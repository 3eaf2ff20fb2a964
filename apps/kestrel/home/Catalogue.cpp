#include "apps/kestrel/home/Catalogue.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/home/Identity.h"

#include <Poco/Exception.h>
#include <fmt/format.h>

#include <algorithm>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr std::size_t kShortestPrefix = 6;
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

[[noreturn]] void failAmbiguous(const std::string& text, const std::vector<CatalogueClip>& clips) {
    std::string message =
        fmt::format("\"{}\" may mean {} clips; name one by its identifier:", text, clips.size());
    for (const CatalogueClip& clip : clips)
        message += fmt::format("\n    {}  {}  (project \"{}\", {})", clip.id.substr(0, 12), clip.name,
                               clip.project, clip.path);
    throw Failure(message);
}

[[noreturn]] void failUnknown(const std::string& text, const std::string& project,
                              const std::vector<CatalogueClip>& clips) {
    std::string message = fmt::format("no clip \"{}\"{} has been transcribed", text,
                                      project.empty() ? "" : fmt::format(" of project \"{}\"", project));
    constexpr std::size_t shown = 10;
    if (!clips.empty()) message += "; there are:";
    for (std::size_t i = 0; i < std::min(shown, clips.size()); ++i)
        message += fmt::format("\n    {}  {}  (project \"{}\")", clips[i].id.substr(0, 12), clips[i].name,
                               clips[i].project);
    if (clips.size() > shown) message += fmt::format("\n    and {} more", clips.size() - shown);
    throw Failure(message);
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

void Catalogue::add(const CatalogueClip& clip) const {
    const FileLock lock = FileLock::take(mFile.string() + ".lock");
    std::vector<CatalogueClip> all = clips();
    std::erase_if(all,
                  [&](const CatalogueClip& old) { return old.id == clip.id && old.project == clip.project; });
    all.push_back(clip);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const CatalogueClip& one : all)
        list->add(toJson(one));
    auto document = jsonObject();
    document->set("clips", list);
    replaceFile(mFile, toText(document), 0600);
}

CatalogueClip findClip(const Home& home, const std::string& text, const std::string& project) {
    const std::vector<CatalogueClip> clips = Catalogue(home).clips();
    auto found = select(clips, project, [&](const CatalogueClip& clip) { return clip.name == text; });
    if (found.empty() && isIdentifierPart(text))
        found = select(clips, project, [&](const CatalogueClip& clip) { return clip.id.starts_with(text); });
    std::string identifier = text.size() == kIdentifierLength && isIdentifierPart(text) ? text : "";
    std::error_code error;
    if (found.empty() && fs::is_regular_file(text, error)) {
        identifier = clipIdentifier(text);
        found = select(clips, project, [&](const CatalogueClip& clip) { return clip.id == identifier; });
    }
    if (found.size() > 1) failAmbiguous(text, found);
    if (found.size() == 1) return found.front();
    // Another home may have written it: the store knows clips that this catalogue does not.
    if (identifier.empty() || project.empty())
        failUnknown(text, project, select(clips, project, [](const CatalogueClip&) { return true; }));
    return {identifier, text, "", project, ""};
}

} // namespace kestrel
