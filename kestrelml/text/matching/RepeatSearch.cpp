#include "kestrelml/text/matching/RepeatSearch.h"

#include <algorithm>

namespace kestrelml::detail {
namespace {

constexpr std::int32_t kNone = -1;
constexpr std::int32_t kSparse = 16; // sort the ranks of ranges that hold fewer than one place in so many

void push(std::vector<RepeatSearch::Candidate>& heap, const RepeatSearch::Candidate& candidate) {
    heap.push_back(candidate);
    std::push_heap(heap.begin(), heap.end());
}

/// Takes the best candidate, and any that are equal to it.
RepeatSearch::Candidate pop(std::vector<RepeatSearch::Candidate>& heap) {
    const RepeatSearch::Candidate best = heap.front();
    while (!heap.empty() && heap.front() == best) {
        std::pop_heap(heap.begin(), heap.end());
        heap.pop_back();
    }
    return best;
}

} // namespace

RepeatSearch::RepeatSearch(const RepeatTree& tree)
    : mTree(tree), mLinks(static_cast<std::size_t>(tree.placeCount())) {
}

std::vector<std::int32_t> RepeatSearch::sortedRanks(const TextRange& range) const {
    std::vector<std::int32_t> ranks;
    ranks.reserve(static_cast<std::size_t>(range.size()));
    const std::int32_t bBegin = mTree.startOfB() + range.bBegin;
    const std::int32_t bEnd = mTree.startOfB() + range.bEnd;
    if (range.size() < mTree.placeCount() / kSparse) {
        for (std::int32_t place = range.aBegin; place < range.aEnd; ++place)
            ranks.push_back(mTree.rankOf(place));
        for (std::int32_t place = bBegin; place < bEnd; ++place)
            ranks.push_back(mTree.rankOf(place));
        std::sort(ranks.begin(), ranks.end());
        return ranks;
    }
    for (std::int32_t rank = 0; rank < mTree.placeCount(); ++rank) {
        const std::int32_t place = mTree.placeOfRank(rank);
        if ((place >= range.aBegin && place < range.aEnd) || (place >= bBegin && place < bEnd)) {
            ranks.push_back(rank);
        }
    }
    return ranks;
}

RepeatSearch::Region RepeatSearch::open(const TextRange& range) {
    Region region{range, {}};
    std::int32_t previous = kNone;
    for (const std::int32_t rank : sortedRanks(range)) {
        RepeatTree::Node node = RepeatTree::kRoot;
        if (previous != kNone) {
            link(previous).next = rank;
            node = mTree.nodeBetween(previous, rank);
            if (node != RepeatTree::kRoot && isInA(previous) != isInA(rank)) {
                region.candidates.push_back({mTree.depth(node), range.aBegin, node});
            }
        }
        link(rank) = {previous, kNone, node};
        previous = rank;
    }
    std::make_heap(region.candidates.begin(), region.candidates.end());
    return region;
}

void RepeatSearch::narrow(Region& region, const TextRange& part) {
    const TextRange whole = region.range;
    region.range = part;
    const auto unlinkPlaces = [&](std::int32_t begin, std::int32_t end) {
        for (std::int32_t place = begin; place < end; ++place)
            unlink(mTree.rankOf(place), region);
    };
    unlinkPlaces(whole.aBegin, part.aBegin);
    unlinkPlaces(part.aEnd, whole.aEnd);
    const std::int32_t startOfB = mTree.startOfB();
    unlinkPlaces(startOfB + whole.bBegin, startOfB + part.bBegin);
    unlinkPlaces(startOfB + part.bEnd, startOfB + whole.bEnd);
}

void RepeatSearch::unlink(std::int32_t rank, Region& region) {
    const Link gone = link(rank);
    if (gone.previous != kNone) link(gone.previous).next = gone.next;
    if (gone.next == kNone) return;
    Link& next = link(gone.next);
    next.previous = gone.previous;
    if (mTree.depth(gone.node) < mTree.depth(next.node)) next.node = gone.node;
    if (next.node != RepeatTree::kRoot && isInA(gone.previous) != isInA(gone.next)) {
        push(region.candidates, {mTree.depth(next.node), region.range.aBegin, next.node});
    }
}

MatchingBlock RepeatSearch::longest(Region& region) const {
    const TextRange& range = region.range;
    const std::int32_t startOfB = mTree.startOfB();
    while (!region.candidates.empty()) {
        const Candidate candidate = pop(region.candidates);
        const RepeatTree::Node node = candidate.node;
        const std::int32_t inA = mTree.firstPlace(node, range.aBegin);
        if (inA >= range.aEnd) continue;
        const std::int32_t inB = mTree.firstPlace(node, startOfB + range.bBegin) - startOfB;
        if (inB >= range.bEnd) continue;

        // Towards the ends of the range a string is cut off. If it is cut to what its parent has or less,
        // then the parent, with more places, is the candidate.
        const RepeatTree::Node parent = mTree.parent(node);
        const std::int32_t size = std::min({mTree.depth(node), range.aEnd - inA, range.bEnd - inB});
        if (size <= mTree.depth(parent)) {
            push(region.candidates, {mTree.depth(parent), range.aBegin, parent});
            continue;
        }
        const Candidate actual{size, inA, node};
        push(region.candidates, actual); // for the parts of this region, too
        if (actual == candidate) return {inA, inB, size};
    }
    return {range.aBegin, range.bBegin, 0};
}

} // namespace kestrelml::detail
