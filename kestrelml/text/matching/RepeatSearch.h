#pragma once

#include "kestrelml/text/matching/RepeatTree.h"
#include "kestrelml/text/matching/SequenceMatcher.h"
#include "kestrelml/text/matching/TextRange.h"

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Finds the longest common block of a range, then of smaller and smaller ranges inside, without beginning
/// anew.
///
/// The places of a range are linked in sorted order. The two places of the longest block, wherever the range
/// ends, have at or above them in the tree the node between two neighbours of which one is in a and one in b.
/// Such nodes are the candidates, kept in a heap with an upper bound on what they offer, which is looked into
/// when a candidate comes to the top. Taking places out only joins neighbours, so it costs one candidate a
/// place.
class RepeatSearch {
public:
    /// A node that may give a block as long as `size`, beginning in a at `first` or later.
    struct Candidate {
        std::int32_t size;
        std::int32_t first;
        RepeatTree::Node node;

        friend bool operator==(const Candidate& x, const Candidate& y) = default;
        /// True when `y` is to be looked into before `x`.
        friend bool operator<(const Candidate& x, const Candidate& y) {
            if (x.size != y.size) return x.size < y.size;
            if (x.first != y.first) return x.first > y.first;
            return x.node > y.node;
        }
    };
    /// A range that is ready to be searched. Ranges that are ready at the same time must not overlap.
    struct Region {
        TextRange range;
        std::vector<Candidate> candidates; ///< a heap
    };

    explicit RepeatSearch(const RepeatTree& tree);

    /// Costs n log n in the range.
    Region open(const TextRange& range);
    /// Reduces a region to a part of it. Costs what is cut off, not what is left.
    void narrow(Region& region, const TextRange& part);
    /// The longest block; of these the first in `a`, then in `b`. Size 0 when there is none.
    MatchingBlock longest(Region& region) const;

private:
    struct Link {
        std::int32_t previous; ///< rank
        std::int32_t next;     ///< rank
        RepeatTree::Node node; ///< between the previous place and this
    };

    std::vector<std::int32_t> sortedRanks(const TextRange& range) const;
    void unlink(std::int32_t rank, Region& region);
    bool isInA(std::int32_t rank) const { return mTree.isInA(mTree.placeOfRank(rank)); }
    Link& link(std::int32_t rank) { return mLinks[static_cast<std::size_t>(rank)]; }

    const RepeatTree& mTree;
    std::vector<Link> mLinks; ///< of each place, by rank: neighbours are near each other in memory, too
};

} // namespace kestrelml::detail
