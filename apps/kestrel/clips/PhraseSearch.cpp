#include "apps/kestrel/clips/PhraseSearch.h"

#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;

class Searcher {
public:
    Searcher(KsNNDatabase& store, const PhraseQuery& query)
        : mStore(store), mQuery(query), mProject(projectIdentifier(query.project)) {}

    std::vector<PhraseHit> run() {
        std::vector<KsNNSearchResults> results;
        check(mStore.Search(mQuery.phrase, mProject, mQuery.threshold, results,
                            std::max(kSegmentsToLookAt, mQuery.maxResults), false),
              mStore, "the search failed");
        std::stable_sort(results.begin(), results.end(), [](const auto& left, const auto& right) {
            return std::tie(right.score, left.mediaGuid, left.startMS) <
                   std::tie(left.score, right.mediaGuid, right.startMS);
        });
        results.resize(std::min(results.size(), static_cast<std::size_t>(mQuery.maxResults)));
        std::vector<PhraseHit> hits;
        hits.reserve(results.size());
        for (const KsNNSearchResults& result : results)
            hits.push_back(describe(result));
        return hits;
    }

private:
    PhraseHit describe(const KsNNSearchResults& result) {
        const KsNNDB_STTClipEntry& entry = clip(result.mediaGuid);
        PhraseHit hit{.clip = result.mediaGuid,
                      .clipName = entry.clipName,
                      .speaker = "",
                      .text = result.text,
                      .startMs = static_cast<std::int32_t>(result.startMS),
                      .endMs = static_cast<std::int32_t>(result.endMS),
                      .score = result.score,
                      .match = std::nullopt};
        for (const KsNNDBEntrySeg& segment : entry.segments) {
            // A hit's time is a float: past four hours it is near the word's time, and as a float the same.
            const auto word =
                std::find_if(segment.wordStartsMS.begin(), segment.wordStartsMS.end(),
                             [&](std::int32_t start) { return static_cast<float>(start) == result.startMS; });
            if (segment.transcript != result.text || word == segment.wordStartsMS.end()) continue;
            hit.startMs = *word;
            hit.speaker = segment.speakerID;
            hit.match = wordSpan(segment.transcript, segment.language,
                                 static_cast<int>(word - segment.wordStartsMS.begin()),
                                 countWords(mQuery.phrase, segment.language));
            break;
        }
        return hit;
    }

    const KsNNDB_STTClipEntry& clip(const std::string& mediaGuid) {
        const auto [found, isNew] = mClips.try_emplace(mediaGuid);
        if (isNew) found->second = readClip(mStore, {mediaGuid, mediaGuid, "", mQuery.project, ""});
        return found->second;
    }

    KsNNDatabase& mStore;
    const PhraseQuery& mQuery;
    std::string mProject;
    std::map<std::string, KsNNDB_STTClipEntry> mClips;
};

} // namespace

std::vector<PhraseHit> findPhrase(KsNNDatabase& store, const PhraseQuery& query) {
    return Searcher(store, query).run();
}

} // namespace kestrel
