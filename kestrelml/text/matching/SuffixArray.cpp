#include "kestrelml/text/matching/SuffixArray.h"

#include <algorithm>
#include <numeric>

namespace kestrelml::detail {
namespace {

using Indices = std::vector<std::int32_t>;
constexpr std::int32_t kEmpty = -1;

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

/// One level of induced sorting (Nong, Zhang, Chan 2009). A suffix is of type S when it is smaller than the
/// one that begins a symbol later, else of type L; a leftmost S after an L ("LMS") anchors the order of the
/// others.
class InducedSorter {
public:
    InducedSorter(const Indices& text, std::int32_t alphabet)
        : mText(text), mSmaller(text.size()), mCounts(at(alphabet)), mSuffixes(text.size(), kEmpty) {
        for (const std::int32_t symbol : text)
            ++mCounts[at(symbol)];
        mSmaller.back() = 1;
        for (std::size_t i = text.size() - 1; i-- > 0;) {
            mSmaller[i] = text[i] < text[i + 1] || (text[i] == text[i + 1] && mSmaller[i + 1]) ? 1 : 0;
        }
        for (std::int32_t i = 1; at(i) < text.size(); ++i) {
            if (isAnchor(i)) mAnchors.push_back(i);
        }
    }

    Indices sort() {
        induceFrom(mAnchors);
        induceFrom(sortAnchors());
        return std::move(mSuffixes);
    }

private:
    bool isAnchor(std::int32_t i) const { return i > 0 && mSmaller[at(i)] && !mSmaller[at(i - 1)]; }

    Indices bucketStarts() const {
        Indices starts(mCounts.size());
        std::exclusive_scan(mCounts.begin(), mCounts.end(), starts.begin(), 0);
        return starts;
    }
    Indices bucketEnds() const {
        Indices ends(mCounts.size());
        std::inclusive_scan(mCounts.begin(), mCounts.end(), ends.begin());
        return ends;
    }

    /// Sorts all suffixes, given the anchors in order. Anchors in any order give the order of the pieces
    /// between anchors.
    void induceFrom(const Indices& anchors) {
        std::fill(mSuffixes.begin(), mSuffixes.end(), kEmpty);
        Indices ends = bucketEnds();
        for (std::size_t k = anchors.size(); k-- > 0;) {
            mSuffixes[at(--ends[at(mText[at(anchors[k])])])] = anchors[k];
        }
        Indices starts = bucketStarts();
        for (const std::int32_t next : mSuffixes) { // which the loop itself adds further on
            const std::int32_t i = next - 1;
            if (i >= 0 && !mSmaller[at(i)]) mSuffixes[at(starts[at(mText[at(i)])]++)] = i;
        }
        ends = bucketEnds();
        for (std::size_t k = mSuffixes.size(); k-- > 0;) {
            const std::int32_t i = mSuffixes[k] - 1;
            if (i >= 0 && mSmaller[at(i)]) mSuffixes[at(--ends[at(mText[at(i)])])] = i;
        }
    }

    bool samePiece(std::int32_t i, std::int32_t j) const {
        for (std::int32_t k = 0;; ++k) {
            if (mText[at(i + k)] != mText[at(j + k)] || mSmaller[at(i + k)] != mSmaller[at(j + k)])
                return false;
            if (k > 0 && (isAnchor(i + k) || isAnchor(j + k))) return isAnchor(i + k) && isAnchor(j + k);
        }
    }

    /// Names each piece by its rank among the pieces, and sorts the text that the names spell.
    Indices sortAnchors() const {
        Indices names(mText.size(), kEmpty);
        std::int32_t count = 0;
        std::int32_t previous = kEmpty;
        for (const std::int32_t i : mSuffixes) {
            if (!isAnchor(i)) continue;
            if (previous != kEmpty && !samePiece(previous, i)) ++count;
            names[at(i)] = count;
            previous = i;
        }
        Indices reduced;
        reduced.reserve(mAnchors.size());
        for (const std::int32_t i : mAnchors)
            reduced.push_back(names[at(i)]);
        Indices order = sortSuffixes(reduced, count + 1);
        for (std::int32_t& i : order)
            i = mAnchors[at(i)];
        return order;
    }

    const Indices& mText;
    std::vector<std::uint8_t> mSmaller;
    Indices mCounts;
    Indices mAnchors;
    Indices mSuffixes;
};

} // namespace

std::vector<std::int32_t> sortSuffixes(const std::vector<std::int32_t>& text, std::int32_t alphabet) {
    if (at(alphabet) < text.size()) return InducedSorter(text, alphabet).sort();
    Indices suffixes(text.size()); // every symbol occurs once
    for (std::int32_t i = 0; at(i) < text.size(); ++i)
        suffixes[at(text[at(i)])] = i;
    return suffixes;
}

std::vector<std::int32_t> commonPrefixes(const std::vector<std::int32_t>& text,
                                         const std::vector<std::int32_t>& suffixes) {
    Indices before(text.size(), kEmpty); // of the suffix at a position, the one sorted before it
    for (std::size_t k = 1; k < suffixes.size(); ++k)
        before[at(suffixes[k])] = suffixes[k - 1];

    Indices& lengths = before; // each entry is read once, just before its length replaces it
    std::int32_t length = 0;
    for (std::int32_t i = 0; at(i) < text.size(); ++i) {
        const std::int32_t j = before[at(i)];
        if (j != kEmpty) {
            while (text[at(i + length)] == text[at(j + length)])
                ++length;
        }
        lengths[at(i)] = j == kEmpty ? kEmpty : length;
        length = std::max(0, length - 1);
    }
    Indices common(text.size() + 1, kEmpty);
    for (std::size_t k = 1; k < suffixes.size(); ++k)
        common[k] = lengths[at(suffixes[k])];
    return common;
}

} // namespace kestrelml::detail
