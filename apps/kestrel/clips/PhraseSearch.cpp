#include "apps/kestrel/clips/PhraseSearch.h"

#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/services/Store.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;

std::string withoutPrefix(const std::string& text, const std::string& prefix) {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

/// A speaker is meant by a name before a label: names are what people give.
void restrictToSpeaker(KsNNDatabase& store, const KsNNProject& project, const std::string& speaker,
                       KsNNPhraseQuery& asked) {
    const std::vector<KsNNSpeakerKV> named = ProjectSpeakers(store, project).matching(speaker);
    if (named.size() == 1)
        asked.speakerGuid = named.front().speakerGuid;
    else if (named.empty())
        asked.speakerID = withoutPrefix(speaker, "Speaker ");
    else // fails, and lists them
        ProjectSpeakers(store, project).find(speaker);
}

} // namespace

std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, const Home& home, const PhraseQuery& query) {
    const KsNNProject project = findProject(store, query.project);
    KsNNPhraseQuery asked;
    asked.text = query.phrase;
    asked.projectGuid = project.projectGuid;
    asked.threshold = query.threshold;
    if (!query.clip.empty()) asked.mediaGuid = findClip(store, home, query.clip, query.project).id;
    if (!query.speaker.empty()) restrictToSpeaker(store, project, query.speaker, asked);
    return findPhrase(store, std::move(asked), query.maxResults);
}

std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, KsNNPhraseQuery query, int maxResults) {
    query.maxSegments = std::max(kSegmentsToLookAt, maxResults);
    std::vector<KsNNPhraseHit> hits;
    check(store.FindPhrase(query, hits, false), store, "the search failed");
    std::stable_sort(hits.begin(), hits.end(), [](const auto& left, const auto& right) {
        return std::tie(right.score, left.mediaGuid, left.startMS) <
               std::tie(left.score, right.mediaGuid, right.startMS);
    });
    hits.resize(std::min(hits.size(), static_cast<std::size_t>(maxResults)));
    return hits;
}

} // namespace kestrel
