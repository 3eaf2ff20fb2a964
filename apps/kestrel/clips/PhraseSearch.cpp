#include "apps/kestrel/clips/PhraseSearch.h"

#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/NeighbourSearch.h"
#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/TimedWords.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/services/Store.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;
/// Clips that are read to find phrases that run from one segment into the next: those with the segments that
/// the index ranks first.
constexpr std::size_t kClipsToRead = 100;

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

/// Reads each clip once. One that cannot be read is empty: its segments have been searched one by one by
/// then.
class ClipReader {
public:
    ClipReader(KsNNDatabase& store, std::string project) : mStore(store), mProject(std::move(project)) {}

    const KsNNDB_STTClipEntry& read(const std::string& clip) {
        const auto [found, isNew] = mRead.try_emplace(clip);
        KsNNDB_STTClipEntry& entry = found->second;
        if (isNew && mStore.GetWholeClip(clip, mProject, entry, false) != KsNN_Success)
            entry.segments.clear();
        return entry;
    }

private:
    KsNNDatabase& mStore;
    std::string mProject;
    std::map<std::string, KsNNDB_STTClipEntry> mRead;
};

bool isSaidBy(const KsNNPhraseQuery& asked, const KsNNDBEntrySeg& segment) {
    return (asked.speakerGuid.empty() || segment.speakerGuid == asked.speakerGuid) &&
           (asked.speakerID.empty() || segment.speakerID == asked.speakerID);
}

/// Where a phrase may run across: the segments that the index ranks first, whether or not one of them by
/// itself is like the phrase, with their neighbours.
class Candidates {
public:
    Candidates(KsNNDatabase& store, KsNNPhraseQuery asked) {
        asked.threshold = 0.0F;
        std::vector<KsNNPhraseHit> all;
        store.FindPhrase(asked, all, false); // a segment that cannot be read ends it; those before it will do
        for (const KsNNPhraseHit& hit : all) {
            if (mSegments.size() == kClipsToRead && !mSegments.contains(hit.mediaGuid)) continue;
            for (const std::int32_t near : {hit.segment - 1, hit.segment, hit.segment + 1})
                mSegments[hit.mediaGuid].insert(near);
        }
    }

    bool contain(const KsNNDBEntrySeg& segment) const {
        const auto clip = mSegments.find(segment.mediaGuid);
        return clip != mSegments.end() && clip->second.contains(segment.segment);
    }
    const std::map<std::string, std::set<std::int32_t>>& byClip() const { return mSegments; }

private:
    std::map<std::string, std::set<std::int32_t>> mSegments;
};

void addCrossings(KsNNDatabase& store, ClipReader& reader, const KsNNPhraseQuery& asked,
                  std::vector<KsNNPhraseHit>& hits) {
    const Candidates candidates(store, asked);
    NeighbourSearch neighbours(asked.text, asked.threshold, [&](const KsNNDBEntrySeg& segment) {
        return isSaidBy(asked, segment) && candidates.contain(segment);
    });
    for (const auto& [clip, segments] : candidates.byClip())
        neighbours.addTo(hits, reader.read(clip));
}

/// The store counts words in its own way, and takes the times of the stored words of those numbers; engines
/// count differently where punctuation parts words.
void setTimes(ClipReader& reader, KsNNPhraseHit& hit) {
    if (isCountedAlike(hit.text, hit.language)) return;
    const auto& segments = reader.read(hit.mediaGuid).segments;
    const auto segment = std::find_if(segments.begin(), segments.end(),
                                      [&](const KsNNDBEntrySeg& one) { return one.segment == hit.segment; });
    if (segment == segments.end() || segment->transcript != hit.text) return;
    const auto times = timesOf(*segment, {hit.matchBegin, hit.matchEnd});
    if (!times) return;
    hit.startMS = static_cast<std::int32_t>(times->startMs);
    hit.endMS = static_cast<std::int32_t>(times->endMs);
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
    return findPhrase(store, std::move(asked), query.maxResults, true);
}

std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, KsNNPhraseQuery query, int maxResults,
                                      bool across) {
    query.maxSegments = std::max(kSegmentsToLookAt, maxResults);
    std::vector<KsNNPhraseHit> hits;
    check(store.FindPhrase(query, hits, false), store, "the search failed");
    ClipReader reader(store, query.projectGuid);
    if (across && countWords(query.text, "") > 1) addCrossings(store, reader, query, hits);
    std::stable_sort(hits.begin(), hits.end(), [](const auto& left, const auto& right) {
        return std::tie(right.score, left.mediaGuid, left.startMS) <
               std::tie(left.score, right.mediaGuid, right.startMS);
    });
    hits.resize(std::min(hits.size(), static_cast<std::size_t>(maxResults)));
    for (KsNNPhraseHit& hit : hits)
        setTimes(reader, hit);
    return hits;
}

} // namespace kestrel
