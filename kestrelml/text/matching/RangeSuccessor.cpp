#include "kestrelml/text/matching/RangeSuccessor.h"

#include <algorithm>
#include <bit>

namespace kestrelml::detail {
namespace {

constexpr std::int32_t kShortRange = 64; // scanned value by value

} // namespace

std::uint32_t RangeSuccessor::Level::onesBefore(std::uint32_t index) const {
    const Word& word = words[index / 64];
    const std::uint64_t below = (std::uint64_t{1} << (index % 64)) - 1;
    return word.onesBefore + static_cast<std::uint32_t>(std::popcount(word.bits & below));
}

RangeSuccessor::RangeSuccessor(const std::vector<std::int32_t>& values) : mValues(values) {
    std::vector<std::int32_t> order = values;
    std::vector<std::int32_t> ones;
    for (int bit = static_cast<int>(std::bit_width(values.size())); bit-- > 0;) {
        Level& level = mLevels.emplace_back();
        level.words.resize(order.size() / 64 + 1);
        ones.clear();
        auto zero = order.begin();
        for (std::size_t i = 0; i < order.size(); ++i) {
            const std::int32_t value = order[i];
            if ((value >> bit & 1) != 0) {
                level.words[i / 64].bits |= std::uint64_t{1} << (i % 64);
                ones.push_back(value);
            } else {
                *zero++ = value;
            }
        }
        level.zeros = static_cast<std::uint32_t>(zero - order.begin());
        std::copy(ones.begin(), ones.end(), zero);
        std::uint32_t total = 0;
        for (Word& word : level.words) {
            word.onesBefore = total;
            total += static_cast<std::uint32_t>(std::popcount(word.bits));
        }
    }
}

std::int32_t RangeSuccessor::operator()(std::int32_t first, std::int32_t last, std::int32_t bound) const {
    const auto none = static_cast<std::int32_t>(mValues.size());
    if (last - first < kShortRange) {
        std::int32_t best = none;
        for (std::int32_t i = first; i <= last; ++i) {
            const std::int32_t value = mValues[static_cast<std::size_t>(i)];
            best = value >= bound && value < best ? value : best;
        }
        return best;
    }
    const auto begin = static_cast<std::uint32_t>(first);
    const auto end = static_cast<std::uint32_t>(last) + 1;
    const std::uint32_t below = countBelow(begin, end, static_cast<std::uint32_t>(bound));
    return below == end - begin ? none : static_cast<std::int32_t>(nthSmallest(begin, end, below));
}

std::uint32_t RangeSuccessor::countBelow(std::uint32_t first, std::uint32_t end, std::uint32_t bound) const {
    std::uint32_t count = 0;
    std::size_t bit = mLevels.size();
    for (const Level& level : mLevels) {
        --bit;
        const std::uint32_t onesFirst = level.onesBefore(first);
        const std::uint32_t onesEnd = level.onesBefore(end);
        if ((bound >> bit & 1) != 0) {
            count += (end - onesEnd) - (first - onesFirst);
            first = level.zeros + onesFirst;
            end = level.zeros + onesEnd;
        } else {
            first -= onesFirst;
            end -= onesEnd;
        }
    }
    return count;
}

std::uint32_t RangeSuccessor::nthSmallest(std::uint32_t first, std::uint32_t end, std::uint32_t n) const {
    std::uint32_t value = 0;
    for (const Level& level : mLevels) {
        const std::uint32_t onesFirst = level.onesBefore(first);
        const std::uint32_t onesEnd = level.onesBefore(end);
        const std::uint32_t zeros = (end - onesEnd) - (first - onesFirst);
        value <<= 1;
        if (n < zeros) {
            first -= onesFirst;
            end -= onesEnd;
        } else {
            n -= zeros;
            value |= 1;
            first = level.zeros + onesFirst;
            end = level.zeros + onesEnd;
        }
    }
    return value;
}

} // namespace kestrelml::detail
