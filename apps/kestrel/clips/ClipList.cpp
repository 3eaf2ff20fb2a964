#include "apps/kestrel/clips/ClipList.h"

#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace kestrel {

namespace {

constexpr int kPageSize = 1000;

bool containsIgnoringCase(const std::string& text, const std::string& part) {
    return icu::UnicodeString::fromUTF8(text).foldCase().indexOf(
               icu::UnicodeString::fromUTF8(part).foldCase()) >= 0;
}

ListedClip describe(const std::string& id, const KsNNDB_STTClipEntry& entry, SpeakerLookup& names) {
    ListedClip clip{.id = id,
                    .name = entry.clipName,
                    .path = "",
                    .projects = {},
                    .isComplete = entry.progressComplete,
                    .segments = entry.segments.size(),
                    .endMs = 0,
                    .languages = {},
                    .speakers = {}};
    for (const KsNNProject& project : entry.projects)
        clip.projects.push_back(project.projectName);
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        clip.endMs = std::max(clip.endMs, endOf(segment));
        clip.languages.insert(segment.language);
        if (segment.wordStartsMS.empty()) continue;
        const std::string speaker = names.display(segment);
        if (std::find(clip.speakers.begin(), clip.speakers.end(), speaker) == clip.speakers.end())
            clip.speakers.push_back(speaker);
    }
    return clip;
}

class Lister {
public:
    Lister(KsNNDatabase& store, const Home& home, const ClipFilter& filter)
        : mStore(store), mHome(home), mFilter(filter), mNames(store),
          mProjects(filter.project.empty() ? storedProjects(store)
                                           : std::vector{requireProject(store, filter.project)}) {}

    ClipListing run(const Callbacks& callbacks) {
        ClipListing listing;
        gather(listing.mayLackUnfinished);
        std::size_t done = 0;
        for (const auto& [id, projectGuid] : mFound) {
            callbacks.throwIfCancelled();
            callbacks.report("reading clips",
                             static_cast<double>(done++) / static_cast<double>(mFound.size()));
            KsNNDB_STTClipEntry entry;
            check(mStore.GetDBContents(id, projectGuid, entry, false, kSchemaVersion), mStore,
                  fmt::format("the clip {} cannot be read", id));
            if (!entry.segments.empty() && isWanted(entry))
                listing.clips.push_back(describe(id, entry, mNames));
        }
        addPaths(listing.clips);
        std::sort(listing.clips.begin(), listing.clips.end(),
                  [](const ListedClip& left, const ListedClip& right) {
                      return std::tie(left.name, left.id) < std::tie(right.name, right.id);
                  });
        return listing;
    }

private:
    bool isListed(const std::string& projectGuid) const {
        return std::any_of(mProjects.begin(), mProjects.end(),
                           [&](const KsNNProject& project) { return project.projectGuid == projectGuid; });
    }

    /// Every clip once, with one of its projects.
    void gather(bool& mayLackUnfinished) {
        for (const KsNNProject& project : mProjects) {
            if (mFilter.unfinishedOnly) break;
            for (const std::string& id : completeClips(mStore, project.projectGuid))
                mFound.try_emplace(id, project.projectGuid);
        }
        const std::vector<UnfinishedClip> unfinished = unfinishedClips(mStore);
        mayLackUnfinished = unfinished.size() >= kUnfinishedPage;
        for (const UnfinishedClip& clip : unfinished) {
            if (isListed(clip.projectGuid)) mFound.try_emplace(clip.id, clip.projectGuid);
        }
        for (const CatalogueClip& clip : Catalogue(mHome).clips()) {
            const auto project = std::find_if(mProjects.begin(), mProjects.end(), [&](const auto& stored) {
                return stored.projectName == clip.project;
            });
            if (project != mProjects.end()) mFound.try_emplace(clip.id, project->projectGuid);
        }
    }

    void addPaths(std::vector<ListedClip>& clips) const {
        std::map<std::string, std::string> paths;
        for (const CatalogueClip& known : Catalogue(mHome).clips())
            paths[known.id] = known.path;
        for (ListedClip& clip : clips)
            clip.path = paths[clip.id];
    }

    bool isWanted(const KsNNDB_STTClipEntry& entry) {
        if (mFilter.unfinishedOnly && entry.progressComplete) return false;
        if (!mFilter.name.empty() && !containsIgnoringCase(entry.clipName, mFilter.name)) return false;
        const auto some = [&](auto condition) {
            return std::any_of(entry.segments.begin(), entry.segments.end(), condition);
        };
        if (!mFilter.language.empty() &&
            !some([&](const KsNNDBEntrySeg& segment) { return segment.language == mFilter.language; }))
            return false;
        return mFilter.speaker.empty() ||
               some([&](const KsNNDBEntrySeg& segment) { return mNames.isCalled(segment, mFilter.speaker); });
    }

    KsNNDatabase& mStore;
    const Home& mHome;
    const ClipFilter& mFilter;
    SpeakerLookup mNames;
    std::vector<KsNNProject> mProjects;
    std::map<std::string, std::string> mFound; ///< Project of each clip.
};

} // namespace

ClipListing listClips(KsNNDatabase& store, const Home& home, const ClipFilter& filter,
                      const Callbacks& callbacks) {
    return Lister(store, home, filter).run(callbacks);
}

std::vector<std::string> completeClips(KsNNDatabase& store, const std::string& projectGuid) {
    std::vector<std::string> clips;
    check(store.GetAllMediaGuids(projectGuid, clips, false, kPageSize), store, "the clips cannot be listed");
    return clips;
}

std::vector<UnfinishedClip> unfinishedClips(KsNNDatabase& store) {
    std::vector<KsNNSearchResults> rows;
    check(store.GetAllInprogressEntries(rows, false), store, "the unfinished clips cannot be listed");
    std::vector<UnfinishedClip> clips;
    clips.reserve(rows.size());
    for (const KsNNSearchResults& row : rows)
        clips.push_back({row.mediaGuid, row.projectGuid});
    return clips;
}

} // namespace kestrel
