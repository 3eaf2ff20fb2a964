#pragma once

#include "kestrelml/text/matching/RepeatTree.h"
#include "kestrelml/text/matching/SequenceMatcher.h"
#include "kestrelml/text/matching/TextRange.h"

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Finds the longest common block of a range, then of smaller and smaller ranges inside it, without starting
/// over.
///
/// The places of a range are linked in sorted order. The two places of the longest block, wherever the range
/// ends, have at or above them in the tree the node between two neighbours of which one is in a and one in b.
/// Such nodes are the candidates, kept in a heap with an upper bound on what they offer, which is evaluated
/// when a candidate reaches the top. Removing a place only joins its neighbours, so it adds one candidate.
class RepeatSearch {
public:
    /// A node that may give a block as long as `size`, beginning in a at `first` or later.
    struct Candidate {
        std::int32_t size;
        std::int32_t first;
        RepeatTree::Node node;

        friend bool operator==(const Candidate& x, const Candidate& y) = default;
        /// True when `y` is evaluated before `x`.
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

    /// Takes O(n log n) in the length of the range.
    Region open(const TextRange& range);
    /// Reduces a region to a part of it. The cost depends on what is cut off, not on what remains.
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
