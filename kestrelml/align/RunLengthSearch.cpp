#include "kestrelml/align/RunLengthSearch.h"

#include <algorithm>
#include <array>

namespace kestrelml::detail {
namespace {

constexpr std::int64_t kMostPairs = 128 * 128;
constexpr std::size_t kLanes = 16; // a fixed number lets the compiler use vector instructions

/// Computes the runs that end at a unit equal to `unit`, and returns the longest.
std::int16_t extendRuns(char16_t unit, std::u16string_view b, const std::int16_t* before,
                        std::int16_t* runs) {
    std::array<std::int16_t, kLanes> longest{};
    std::size_t j = 0;
    for (; j + kLanes <= b.size(); j += kLanes) {
        for (std::size_t k = 0; k < kLanes; ++k) {
            const auto extended = static_cast<std::int16_t>(before[j + k] + 1);
            const std::int16_t run = b[j + k] == unit ? extended : std::int16_t{0};
            runs[j + k + 1] = run;
            longest[k] = run > longest[k] ? run : longest[k];
        }
    }
    std::int16_t most = *std::max_element(longest.begin(), longest.end());
    for (; j < b.size(); ++j) {
        runs[j + 1] = b[j] == unit ? static_cast<std::int16_t>(before[j] + 1) : std::int16_t{0};
        most = std::max(most, runs[j + 1]);
    }
    return most;
}

} // namespace

bool RunLengthSearch::suits(const TextRange& range) {
    return std::int64_t{range.aSize()} * range.bSize() <= kMostPairs;
}

MatchingBlock RunLengthSearch::longest(const TextRange& range) {
    const std::u16string_view b =
        mB.substr(static_cast<std::size_t>(range.bBegin), static_cast<std::size_t>(range.bSize()));
    mRuns.assign(b.size() + 1, 0);
    mRunsBefore.assign(b.size() + 1, 0);
    MatchingBlock best{range.aBegin, range.bBegin, 0};
    for (std::int32_t i = range.aBegin; i < range.aEnd; ++i) {
        std::swap(mRuns, mRunsBefore);
        const std::int16_t most =
            extendRuns(mA[static_cast<std::size_t>(i)], b, mRunsBefore.data(), mRuns.data());
        if (most > best.size) {
            const auto end = std::find(mRuns.begin(), mRuns.end(), most) - mRuns.begin();
            best = {i - most + 1, range.bBegin + static_cast<std::int32_t>(end) - most, most};
        }
    }
    return best;
}

} // namespace kestrelml::detail
