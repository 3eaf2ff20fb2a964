#pragma once

#include "kestrelml/text/matching/SequenceMatcher.h"

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Maps each offset of one text to the approximate offset in the other.
class PositionMap {
public:
    static constexpr std::int32_t kNowhere = -1;

    explicit PositionMap(const std::vector<Opcode>& opcodes);

    /// Returns the offset in the second text, which may lie beyond its end, or `kNowhere` for an offset that
    /// the first text does not have.
    std::int32_t operator()(std::int32_t offset) const;

private:
    struct Range {
        std::int32_t a0;
        std::int32_t a1;
        std::int32_t b0;
    };
    std::vector<Range> mRanges;
};

} // namespace kestrelml::detail
