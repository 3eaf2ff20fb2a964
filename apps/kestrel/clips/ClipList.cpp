#include "apps/kestrel/clips/ClipList.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"

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

bool contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

/// Names of speakers, or labels of those that have none. Silence has a label, too, which means nothing.
std::vector<std::string> speakersOf(const KsNNClipSummary& clip, SpeakerLookup& names) {
    std::vector<std::string> speakers;
    if (clip.endMS == 0) return speakers;
    for (const KsNNClipSpeaker& speaker : clip.speakers) {
        const std::string shown = names.display(speaker);
        if (!contains(speakers, shown)) speakers.push_back(shown);
    }
    return speakers;
}

bool speaksIn(const KsNNClipSummary& clip, const std::string& text, SpeakerLookup& names) {
    return std::any_of(clip.speakers.begin(), clip.speakers.end(),
                       [&](const KsNNClipSpeaker& speaker) { return names.isCalled(speaker, text); });
}

} // namespace

std::vector<ListedClip> listClips(KsNNDatabase& store, const Home& home, const ClipFilter& filter) {
    std::map<std::string, std::string> paths;
    for (const CatalogueClip& known : Catalogue(home).clips())
        if (!known.path.empty()) paths[known.id] = known.path;
    KsNNClipQuery query;
    if (!filter.project.empty()) query.projectGuid = requireProject(store, filter.project).projectGuid;
    query.unfinishedOnly = filter.unfinishedOnly;
    query.withContents = true;
    SpeakerLookup names(store);
    std::vector<ListedClip> listed;
    for (KsNNClipSummary& clip : findClips(store, query)) {
        if (!filter.name.empty() && !containsIgnoringCase(clip.clipName, filter.name)) continue;
        if (!filter.language.empty() && !contains(clip.languages, filter.language)) continue;
        if (!filter.speaker.empty() && !speaksIn(clip, filter.speaker, names)) continue;
        ListedClip& added = listed.emplace_back();
        added.path = paths[clip.mediaGuid];
        added.speakers = speakersOf(clip, names);
        added.stored = std::move(clip);
    }
    std::sort(listed.begin(), listed.end(), [](const ListedClip& left, const ListedClip& right) {
        return std::tie(left.stored.clipName, left.stored.mediaGuid) <
               std::tie(right.stored.clipName, right.stored.mediaGuid);
    });
    return listed;
}

const char* stateOf(const ListedClip& clip) {
    return clip.stored.isComplete ? "complete" : "unfinished";
}

Poco::JSON::Object::Ptr toJson(const ListedClip& clip) {
    const KsNNClipSummary& stored = clip.stored;
    std::vector<std::string> projects;
    for (const KsNNProject& project : stored.projects)
        projects.push_back(project.projectName);
    auto object = jsonObject();
    object->set("clip", stored.mediaGuid);
    object->set("clipName", stored.clipName);
    if (!clip.path.empty()) object->set("path", clip.path);
    object->set("projects", jsonArray(projects));
    object->set("state", stateOf(clip));
    object->set("segments", stored.segmentCount);
    object->set("endMS", stored.endMS);
    object->set("languages", jsonArray(stored.languages));
    object->set("speakers", jsonArray(clip.speakers));
    return object;
}

bool isInProject(const KsNNClipSummary& clip, const std::string& projectGuid) {
    return std::any_of(clip.projects.begin(), clip.projects.end(),
                       [&](const KsNNProject& project) { return project.projectGuid == projectGuid; });
}

std::vector<KsNNClipSummary> findClips(KsNNDatabase& store, const KsNNClipQuery& query) {
    std::vector<KsNNClipSummary> clips;
    check(store.FindClips(query, clips, false), store, "the clips cannot be listed");
    return clips;
}

std::vector<std::string> completeClips(KsNNDatabase& store, const std::string& projectGuid) {
    std::vector<std::string> clips;
    check(store.GetAllMediaGuids(projectGuid, clips, false, kPageSize), store, "the clips cannot be listed");
    return clips;
}

} // namespace kestrel
