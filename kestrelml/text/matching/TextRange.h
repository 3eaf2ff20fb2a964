#pragma once

#include <cstdint>

namespace kestrelml::detail {

/// `a[aBegin, aEnd)` and `b[bBegin, bEnd)`.
struct TextRange {
    std::int32_t aBegin, aEnd;
    std::int32_t bBegin, bEnd;

    std::int32_t aSize() const { return aEnd - aBegin; }
    std::int32_t bSize() const { return bEnd - bBegin; }
    std::int32_t size() const { return aSize() + bSize(); }
    bool canMatch() const { return aSize() > 0 && bSize() > 0; }
};

} // namespace kestrelml::detail
