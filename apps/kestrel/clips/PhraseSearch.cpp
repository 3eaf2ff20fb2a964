#include "apps/kestrel/clips/PhraseSearch.h"

#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/NeighbourSearch.h"
#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/TimedWords.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/services/Store.h"
#include "kestrelml/store/KsNNSegments.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;
/// Clips in which phrases that run from one segment into the next are looked for: those with the segments
/// that the index ranks first.
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

/// What cannot be read is left out: it has been searched segment by segment by then.
std::map<std::string, KsNNDB_STTClipEntry> read(KsNNDatabase& store, const std::string& project,
                                                const kestrelml::SegmentNumbers& wanted) {
    std::map<std::string, KsNNDB_STTClipEntry> clips;
    kestrelml::readSegments(store, project, wanted, clips, false);
    return clips;
}

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
        asked.maxSegments = kSegmentsToLookAt;
        std::vector<KsNNPhraseHit> all;
        store.FindPhrase(asked, all, false); // a segment that cannot be read ends it; those before it will do
        for (const KsNNPhraseHit& hit : all) {
            if (mSegments.size() == kClipsToRead && !mSegments.contains(hit.mediaGuid)) continue;
            mNames[hit.mediaGuid] = hit.clipName;
            for (const std::int32_t near : {hit.segment - 1, hit.segment, hit.segment + 1})
                mSegments[hit.mediaGuid].insert(near);
        }
    }

    const kestrelml::SegmentNumbers& segments() const { return mSegments; }
    const std::string& nameOf(const std::string& clip) const { return mNames.at(clip); }

private:
    kestrelml::SegmentNumbers mSegments;
    std::map<std::string, std::string> mNames;
};

void addCrossings(KsNNDatabase& store, const KsNNPhraseQuery& asked, std::vector<KsNNPhraseHit>& hits) {
    const Candidates candidates(store, asked);
    NeighbourSearch neighbours(asked.text, asked.threshold,
                               [&](const KsNNDBEntrySeg& segment) { return isSaidBy(asked, segment); });
    for (auto& [clip, entry] : read(store, asked.projectGuid, candidates.segments())) {
        entry.clipName = candidates.nameOf(clip);
        neighbours.addTo(hits, entry);
    }
}

/// The store counts words in its own way, and takes the times of the stored words of those numbers; engines
/// count differently where punctuation parts words.
void setTimes(KsNNDatabase& store, const std::string& project, std::vector<KsNNPhraseHit>& hits) {
    kestrelml::SegmentNumbers wanted;
    for (const KsNNPhraseHit& hit : hits) {
        if (!isCountedAlike(hit.text, hit.language)) wanted[hit.mediaGuid].insert(hit.segment);
    }
    const auto clips = read(store, project, wanted);
    for (KsNNPhraseHit& hit : hits) {
        const auto clip = clips.find(hit.mediaGuid);
        if (clip == clips.end() || isCountedAlike(hit.text, hit.language)) continue;
        for (const KsNNDBEntrySeg& segment : clip->second.segments) {
            if (segment.segment != hit.segment || segment.transcript != hit.text) continue;
            const auto times = timesOf(segment, {hit.matchBegin, hit.matchEnd});
            if (!times) continue;
            hit.startMS = static_cast<std::int32_t>(times->startMs);
            hit.endMS = static_cast<std::int32_t>(times->endMs);
        }
    }
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
    if (across && countWords(query.text, "") > 1) addCrossings(store, query, hits);
    std::stable_sort(hits.begin(), hits.end(), [](const auto& left, const auto& right) {
        return std::tie(right.score, left.mediaGuid, left.startMS) <
               std::tie(left.score, right.mediaGuid, right.startMS);
    });
    hits.resize(std::min(hits.size(), static_cast<std::size_t>(maxResults)));
    setTimes(store, query.projectGuid, hits);
    return hits;
}

} // namespace kestrel
