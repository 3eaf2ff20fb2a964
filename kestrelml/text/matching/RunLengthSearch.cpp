#include "kestrelml/text/matching/RunLengthSearch.h"

#include <algorithm>
#include <array>

namespace kestrelml::detail {
namespace {

// Work on a fixed number of units at a time, in variables of its own, lets the compiler use vector
// instructions.
using Lanes = std::array<std::int16_t, 16>;

/// Computes the runs that end at a unit equal to `unit`, and returns the longest.
std::int16_t extendRuns(char16_t unit, std::u16string_view b, const std::int16_t* before,
                        std::int16_t* runs) {
    const char16_t* units = b.data();
    Lanes longest{};
    std::size_t j = 0;
    for (; j + longest.size() <= b.size(); j += longest.size()) {
        Lanes extended;
        for (std::size_t k = 0; k < extended.size(); ++k) {
            const auto run = static_cast<std::int16_t>(before[j + k] + 1);
            extended[k] = units[j + k] == unit ? run : std::int16_t{0};
        }
        for (std::size_t k = 0; k < extended.size(); ++k) {
            longest[k] = extended[k] > longest[k] ? extended[k] : longest[k];
        }
        std::copy(extended.begin(), extended.end(), runs + j + 1);
    }
    std::int16_t most = *std::max_element(longest.begin(), longest.end());
    for (; j < b.size(); ++j) {
        runs[j + 1] = b[j] == unit ? static_cast<std::int16_t>(before[j] + 1) : std::int16_t{0};
        most = std::max(most, runs[j + 1]);
    }
    return most;
}

} // namespace

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
