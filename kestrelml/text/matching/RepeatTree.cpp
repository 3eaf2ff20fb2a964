#include "kestrelml/text/matching/RepeatTree.h"

#include "kestrelml/text/matching/SuffixArray.h"

#include <algorithm>

namespace kestrelml::detail {
namespace {

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

constexpr std::size_t kUnits = 65536;
constexpr std::int32_t kEndOfB =
    0; // the two ends are symbols of their own, so that nothing matches across them
constexpr std::int32_t kEndOfA = 1;
constexpr std::int32_t kFirstSymbol = 2;

} // namespace

/// Both texts end to end, their units numbered without gaps.
RepeatTree::Symbols RepeatTree::joinTexts(std::u16string_view a, std::u16string_view b) {
    std::vector<std::int32_t> numbers(kUnits);
    for (const char16_t unit : a)
        numbers[unit] = 1;
    for (const char16_t unit : b)
        numbers[unit] = 1;
    std::int32_t next = kFirstSymbol;
    for (std::int32_t& number : numbers) {
        if (number != 0) number = next++;
    }
    Symbols symbols{{}, next};
    symbols.text.reserve(a.size() + b.size() + 2);
    for (const char16_t unit : a)
        symbols.text.push_back(numbers[unit]);
    symbols.text.push_back(kEndOfA);
    for (const char16_t unit : b)
        symbols.text.push_back(numbers[unit]);
    symbols.text.push_back(kEndOfB);
    return symbols;
}

RepeatTree::RepeatTree(std::u16string_view a, std::u16string_view b)
    : RepeatTree(joinTexts(a, b), static_cast<std::int32_t>(a.size()) + 1) {
}

RepeatTree::RepeatTree(const Symbols& symbols, std::int32_t startOfB)
    : mStartOfB(startOfB), mSuffixes(sortSuffixes(symbols.text, symbols.alphabet)),
      mCommon(commonPrefixes(symbols.text, mSuffixes)), mRanks(mSuffixes.size()), mNodes(mSuffixes.size()),
      mLeft(mSuffixes.size()), mRight(mSuffixes.size()), mShallowest(mCommon), mSuccessor(mSuffixes) {
    for (std::int32_t rank = 0; rank < placeCount(); ++rank)
        mRanks[at(placeOfRank(rank))] = rank;
    nameNodes();
}

void RepeatTree::nameNodes() {
    std::vector<Node> open = {
        kRoot}; // nodes whose last rank is not known yet, each deeper than the one before
    for (std::int32_t index = 1; index <= placeCount(); ++index) {
        const std::int32_t common = mCommon[at(index)];
        std::int32_t left = index - 1;
        while (depth(open.back()) > std::max(common, 0)) {
            left = mLeft[at(open.back())];
            mRight[at(open.back())] = index;
            open.pop_back();
        }
        if (common <= 0) continue;
        if (depth(open.back()) < common) {
            mLeft[at(index)] = left;
            open.push_back(index);
        }
        mNodes[at(index)] = open.back();
    }
}

RepeatTree::Node RepeatTree::nodeBefore(std::int32_t rank) const {
    return mNodes[at(rank)];
}

RepeatTree::Node RepeatTree::nodeBetween(std::int32_t lowerRank, std::int32_t higherRank) const {
    return mNodes[at(mShallowest(lowerRank + 1, higherRank))];
}

RepeatTree::Node RepeatTree::parent(Node node) const {
    const std::int32_t left = mLeft[at(node)];
    const std::int32_t right = mRight[at(node)];
    return mNodes[at(mCommon[at(left)] >= mCommon[at(right)] ? left : right)];
}

std::int32_t RepeatTree::firstPlace(Node node, std::int32_t bound) const {
    return mSuccessor(mLeft[at(node)], mRight[at(node)] - 1, bound);
}

} // namespace kestrelml::detail
