#include "apps/kestrel/clips/NeighbourSearch.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

/// Hits for "old wooden bridge at night" in two segments of these numbers.
std::size_t hitsIn(int first, int second) {
    KsNNDB_STTClipEntry entry;
    for (const auto& [number, text] :
         {std::pair(first, "across the old wooden"), std::pair(second, "bridge at night")}) {
        KsNNDBEntrySeg segment;
        segment.segment = number;
        segment.transcript = text;
        segment.language = "en";
        entry.segments.push_back(segment);
    }
    std::vector<KsNNPhraseHit> hits;
    NeighbourSearch("old wooden bridge at night", 0.9F, [](const auto&) { return true; }).addTo(hits, entry);
    return hits.size();
}

TEST(NeighbourSearch, CrossesNeighboursAndNoGap) {
    EXPECT_EQ(hitsIn(3, 4), 1U);
    EXPECT_EQ(hitsIn(3, 5), 0U);
}

} // namespace
} // namespace kestrel
