#pragma once

#include "engine/FieldData.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

struct Expansion {
    std::uint32_t term;
    float boost; ///< 1 for the term itself, less for others
};

/// The terms of the field within the edit distance (insertion, deletion, substitution, transposition of
/// neighbours) of the term: at most limit, most similar first, equally similar ones in byte order.
std::vector<Expansion> expandFuzzy(const TextData& data, std::string_view term, unsigned edits,
                                   std::size_t limit);

/// "AUTO", "AUTO:low,high", 0, 1 or 2: how many edits a term of a given length may have.
class Fuzziness {
public:
    static Fuzziness parse(const std::string& text);
    unsigned editsFor(std::size_t codePoints) const {
        return codePoints < mLow ? mFixed : codePoints < mHigh ? std::max(mFixed, 1U) : std::max(mFixed, 2U);
    }

private:
    std::size_t mLow = SIZE_MAX;
    std::size_t mHigh = SIZE_MAX;
    unsigned mFixed = 0;
};

} // namespace kestrel::index
