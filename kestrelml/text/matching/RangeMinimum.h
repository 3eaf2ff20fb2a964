#pragma once

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Finds where the smallest of consecutive values lies, for any range, in constant time.
class RangeMinimum {
public:
    /// Keeps a reference to `values`.
    explicit RangeMinimum(const std::vector<std::int32_t>& values);

    /// Returns an index from `first` to `last`, both included, with the smallest value there.
    std::int32_t operator()(std::int32_t first, std::int32_t last) const;

private:
    static constexpr std::int32_t kBlock = 32;

    std::int32_t smaller(std::int32_t i, std::int32_t j) const;
    std::int32_t scan(std::int32_t first, std::int32_t last) const;

    const std::vector<std::int32_t>& mValues;
    std::vector<std::vector<std::int32_t>> mLevels; ///< [k][i]: smallest of the 2^k blocks from block i
};

} // namespace kestrelml::detail
