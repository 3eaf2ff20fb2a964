#include "apps/kestrel/clips/PhraseSearch.h"

#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"

#include <algorithm>
#include <tuple>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;

} // namespace

std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, const PhraseQuery& query) {
    KsNNPhraseQuery asked;
    asked.text = query.phrase;
    asked.projectGuid = projectIdentifier(query.project);
    asked.threshold = query.threshold;
    asked.maxSegments = std::max(kSegmentsToLookAt, query.maxResults);
    std::vector<KsNNPhraseHit> hits;
    check(store.FindPhrase(asked, hits, false), store, "the search failed");
    std::stable_sort(hits.begin(), hits.end(), [](const auto& left, const auto& right) {
        return std::tie(right.score, left.mediaGuid, left.startMS) <
               std::tie(left.score, right.mediaGuid, right.startMS);
    });
    hits.resize(std::min(hits.size(), static_cast<std::size_t>(query.maxResults)));
    return hits;
}

} // namespace kestrel
