#pragma once

#include "kestrelml/text/matching/RangeMinimum.h"
#include "kestrelml/text/matching/RangeSuccessor.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace kestrelml::detail {

/// Everything that two texts repeat, in themselves or in each other.
///
/// A node stands for a string that occurs at two or more places and goes on differently there; its places are
/// neighbours in the sorted order of all suffixes. It is the generalised suffix tree, kept as arrays over
/// that order, linear in the texts. Places are positions in both texts laid end to end: text a first, then
/// from `startOfB()` on text b.
class RepeatTree {
public:
    using Node = std::int32_t;
    static constexpr Node kRoot = 0; ///< Repeats nothing.

    RepeatTree(std::u16string_view a, std::u16string_view b);
    RepeatTree(const RepeatTree&) = delete;
    RepeatTree& operator=(const RepeatTree&) = delete;

    std::int32_t startOfB() const { return mStartOfB; }
    std::int32_t placeCount() const { return static_cast<std::int32_t>(mSuffixes.size()); }
    bool isInA(std::int32_t place) const { return place < mStartOfB; }

    /// Places by rank, and the reverse.
    std::int32_t placeOfRank(std::int32_t rank) const { return mSuffixes[static_cast<std::size_t>(rank)]; }
    std::int32_t rankOf(std::int32_t place) const { return mRanks[static_cast<std::size_t>(place)]; }

    /// What the suffixes of two ranks, the lower first, have in common.
    Node nodeBetween(std::int32_t lowerRank, std::int32_t higherRank) const;
    /// Likewise for the ranks `rank` - 1 and `rank`.
    Node nodeBefore(std::int32_t rank) const;
    /// Length of the repeated string.
    std::int32_t depth(Node node) const {
        return node == kRoot ? 0 : mCommon[static_cast<std::size_t>(node)];
    }
    /// The longest shorter prefix that is a node.
    Node parent(Node node) const;
    /// The node's first place that is not before `bound`; `placeCount()` when there is none.
    std::int32_t firstPlace(Node node, std::int32_t bound) const;

private:
    struct Symbols {
        std::vector<std::int32_t> text;
        std::int32_t alphabet;
    };
    static Symbols joinTexts(std::u16string_view a, std::u16string_view b);
    RepeatTree(const Symbols& symbols, std::int32_t startOfB);

    void nameNodes();
    Node nodeAt(std::int32_t index) const;

    std::int32_t mStartOfB;
    std::vector<std::int32_t> mSuffixes;
    std::vector<std::int32_t> mCommon; ///< as `commonPrefixes` gives it
    std::vector<std::int32_t> mRanks;
    // A node is named by the first index into mCommon, inside its range of ranks, that holds its depth.
    std::vector<Node> mNodes;         ///< node of each index of mCommon
    std::vector<std::int32_t> mLeft;  ///< first rank of a node
    std::vector<std::int32_t> mRight; ///< rank after its last
    RangeMinimum mShallowest;
    RangeSuccessor mSuccessor;
};

} // namespace kestrelml::detail
