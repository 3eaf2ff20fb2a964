#include "apps/kestrel/clips/ClipFinder.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/clips/ClipLabels.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace kestrel {

namespace {

[[noreturn]] void failAmbiguous(const std::string& text, const std::vector<Clip>& clips) {
    std::string message =
        fmt::format("\"{}\" may mean {} clips; name one by its identifier:", text, clips.size());
    for (const Clip& clip : clips)
        message += fmt::format("\n    {}  {}  (project \"{}\"){}{}", shortIdentifier(clip.id),
                               printableName(clip.name), clip.project.projectName,
                               clip.path.empty() ? "" : "  " + printableName(clip.path), dayOf(clip.path));
    throw Failure(message);
}

[[noreturn]] void failUnknown(const Home& home, const std::string& text, const std::string& project) {
    std::string message = fmt::format("no clip \"{}\"{} has been transcribed", text,
                                      project.empty() ? "" : fmt::format(" of project \"{}\"", project));
    std::vector<CatalogueClip> known = Catalogue(home).clips();
    std::erase_if(known, [&](const auto& clip) { return !project.empty() && clip.project != project; });
    constexpr std::size_t kShown = 10;
    if (!known.empty()) message += "; there are:";
    for (std::size_t i = 0; i < std::min(kShown, known.size()); ++i)
        message += fmt::format("\n    {}  {}  (project \"{}\")", shortIdentifier(known[i].id),
                               printableName(known[i].name), known[i].project);
    if (known.size() > kShown) message += fmt::format("\n    and {} more", known.size() - kShown);
    throw Failure(message);
}

int segmentCount(KsNNDatabase& store, const std::string& id, const KsNNProject& project) {
    int segments = 0;
    check(store.GetSegmentCount(id, project.projectGuid, segments, false, kSchemaVersion), store,
          "the store cannot be asked for the clip");
    return segments;
}

/// Looks through the store, where other homes may have put clips that our catalogue does not know.
class StoreSearch {
public:
    /// @param project Null: any.
    StoreSearch(KsNNDatabase& store, const KsNNProject* project) : mStore(store) {
        if (project != nullptr) mQuery.projectGuid = project->projectGuid;
    }

    std::vector<Clip> byIdentifier(const std::string& identifier) const {
        KsNNClipQuery query = mQuery;
        query.mediaGuid = identifier;
        return find(query);
    }

    std::vector<Clip> byPrefix(const std::string& prefix) const {
        std::vector<Clip> found = find(mQuery);
        std::erase_if(found, [&](const Clip& clip) { return !clip.id.starts_with(prefix); });
        return found;
    }

    std::vector<Clip> byName(const std::string& name) const {
        KsNNClipQuery query = mQuery;
        query.clipName = name;
        return find(query);
    }

private:
    std::vector<Clip> find(const KsNNClipQuery& query) const {
        std::vector<Clip> found;
        for (const KsNNClipSummary& clip : findClips(mStore, query)) {
            for (const KsNNProject& project : clip.projects) {
                if (!query.projectGuid.empty() && project.projectGuid != query.projectGuid) continue;
                found.push_back({clip.mediaGuid, clip.clipName, "", project});
                break;
            }
        }
        return found;
    }

    KsNNDatabase& mStore;
    KsNNClipQuery mQuery;
};

std::vector<Clip> findInStore(KsNNDatabase& store, const std::string& text, const std::string& project) {
    std::optional<KsNNProject> wanted;
    if (!project.empty()) wanted = requireProject(store, project);
    const StoreSearch search(store, wanted ? &*wanted : nullptr);
    std::error_code error;
    if (std::filesystem::is_regular_file(text, error)) {
        if (auto found = search.byIdentifier(clipIdentifier(text)); !found.empty()) return found;
    }
    if (text.size() >= kShortestPrefix) {
        if (auto found = search.byIdentifier(text); !found.empty()) return found;
        if (auto found = search.byPrefix(text); !found.empty()) return found;
    }
    return search.byName(text);
}

} // namespace

Clip findClip(KsNNDatabase& store, const Home& home, const std::string& text, const std::string& project) {
    std::vector<Clip> found;
    for (const CatalogueClip& clip : Catalogue(home).find(text, project)) {
        const KsNNProject stored = findProject(store, clip.project);
        // Another home may have deleted it.
        if (segmentCount(store, clip.id, stored) > 0)
            found.push_back({clip.id, clip.name, clip.path, stored});
    }
    if (found.empty()) found = findInStore(store, text, project);
    if (found.empty()) failUnknown(home, text, project);
    // In several projects a clip has one transcript.
    const bool isOne = std::all_of(found.begin(), found.end(),
                                   [&](const Clip& clip) { return clip.id == found.front().id; });
    if (!isOne) failAmbiguous(text, found);
    return found.front();
}

} // namespace kestrel
