#include "kestrelml/text/matching/RangeMinimum.h"

#include <algorithm>
#include <bit>

namespace kestrelml::detail {
namespace {

std::size_t at(std::int32_t index) {
    return static_cast<std::size_t>(index);
}

} // namespace

RangeMinimum::RangeMinimum(const std::vector<std::int32_t>& values) : mValues(values) {
    const auto size = static_cast<std::int32_t>(values.size());
    std::vector<std::int32_t>& blocks = mLevels.emplace_back();
    for (std::int32_t first = 0; first < size; first += kBlock) {
        blocks.push_back(scan(first, std::min(first + kBlock, size) - 1));
    }
    for (std::size_t span = 1; 2 * span <= mLevels.front().size(); span *= 2) {
        const std::vector<std::int32_t>& half = mLevels.back();
        std::vector<std::int32_t> whole(half.size() - span);
        for (std::size_t i = 0; i < whole.size(); ++i)
            whole[i] = smaller(half[i], half[i + span]);
        mLevels.push_back(std::move(whole));
    }
}

std::int32_t RangeMinimum::operator()(std::int32_t first, std::int32_t last) const {
    const std::int32_t firstBlock = first / kBlock + 1; // of those wholly inside
    const std::int32_t endBlock = last / kBlock;
    if (firstBlock > endBlock) return scan(first, last);
    std::int32_t best = smaller(scan(first, firstBlock * kBlock - 1), scan(endBlock * kBlock, last));
    if (firstBlock < endBlock) {
        const auto level =
            static_cast<std::int32_t>(std::bit_width(static_cast<std::uint32_t>(endBlock - firstBlock))) - 1;
        const std::vector<std::int32_t>& spans = mLevels[at(level)];
        best = smaller(best, smaller(spans[at(firstBlock)], spans[at(endBlock - (1 << level))]));
    }
    return best;
}

std::int32_t RangeMinimum::smaller(std::int32_t i, std::int32_t j) const {
    return mValues[at(j)] < mValues[at(i)] ? j : i;
}

std::int32_t RangeMinimum::scan(std::int32_t first, std::int32_t last) const {
    std::int32_t best = first;
    for (std::int32_t i = first + 1; i <= last; ++i)
        best = smaller(best, i);
    return best;
}

} // namespace kestrelml::detail
