#pragma once

#include "kestrelml/text/matching/SequenceMatcher.h"
#include "kestrelml/text/matching/TextRange.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace kestrelml::detail {

/// Finds the longest common block of a small range by comparing every unit with every other.
class RunLengthSearch {
public:
    /// Up to so many pairs of units it is faster to compare them all than to set up a `RepeatSearch`.
    static constexpr std::int64_t kMostPairs = std::int64_t{192} * 192;

    RunLengthSearch(std::u16string_view a, std::u16string_view b) : mA(a), mB(b) {}

    /// The longest block; of these the first in `a`, then in `b`. Size 0 when there is none.
    MatchingBlock longest(const TextRange& range);

private:
    std::u16string_view mA;
    std::u16string_view mB;
    // Runs that end at a unit of a, by where in b they end; element 0 stands before b.
    std::vector<std::int16_t> mRuns;
    std::vector<std::int16_t> mRunsBefore;
};

} // namespace kestrelml::detail
