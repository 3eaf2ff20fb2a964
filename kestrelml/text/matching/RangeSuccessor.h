#pragma once

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Finds the smallest value not below a bound in any range of a sequence (a wavelet matrix).
class RangeSuccessor {
public:
    /// Keeps a reference to `values`, a permutation of 0, 1, 2 …
    explicit RangeSuccessor(const std::vector<std::int32_t>& values);

    /// Returns the smallest value not below `bound` at the indices from `first` to `last`, both included, or
    /// the number of values when there is none.
    std::int32_t operator()(std::int32_t first, std::int32_t last, std::int32_t bound) const;

private:
    struct Word {
        std::uint64_t bits = 0;
        std::uint32_t onesBefore = 0;
    };
    /// One bit of every value, the most significant first. Each level has the values in the order in which
    /// the level before leaves them: those with a 0 bit, then those with a 1 bit.
    struct Level {
        std::vector<Word> words;
        std::uint32_t zeros = 0;

        std::uint32_t onesBefore(std::uint32_t index) const;
    };

    std::uint32_t countBelow(std::uint32_t first, std::uint32_t end, std::uint32_t bound) const;
    std::uint32_t nthSmallest(std::uint32_t first, std::uint32_t end, std::uint32_t n) const;

    const std::vector<std::int32_t>& mValues;
    std::vector<Level> mLevels;
};

} // namespace kestrelml::detail
