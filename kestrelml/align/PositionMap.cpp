#include "kestrelml/align/PositionMap.h"

#include <algorithm>

namespace kestrelml::detail {

PositionMap::PositionMap(const std::vector<Opcode>& opcodes) {
    for (const Opcode& opcode : opcodes) {
        if (opcode.a1 < opcode.a2) mRanges.push_back({opcode.a1, opcode.a2, opcode.b1});
    }
}

std::int32_t PositionMap::operator()(std::int32_t offset) const {
    const auto after = std::upper_bound(mRanges.begin(), mRanges.end(), offset,
                                        [](std::int32_t x, const Range& range) { return x < range.a0; });
    if (after == mRanges.begin()) return kNowhere;
    const Range& range = *(after - 1);
    return offset < range.a1 ? range.b0 + (offset - range.a0) : kNowhere;
}

} // namespace kestrelml::detail
