#pragma once

#include "index/FieldData.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

struct Expansion {
    std::uint32_t term;
    float boost; ///< 1 for the term itself, less for others
};

/// The terms of the field within so many edits (insertion, deletion, substitution, transposition of
/// neighbours) of the term: at most limit, the most similar first and equally similar ones in byte order.
std::vector<Expansion> expandFuzzy(const TextData& data, std::string_view term, unsigned edits,
                                   std::size_t limit);

/// "AUTO", "AUTO:low,high", 0, 1 or 2: how many edits a term of so many code points may have.
class Fuzziness {
public:
    static Fuzziness parse(const std::string& text);
    unsigned editsFor(std::size_t codePoints) const {
        return codePoints < low_ ? fixed_ : codePoints < high_ ? std::max(fixed_, 1U) : std::max(fixed_, 2U);
    }

private:
    std::size_t low_ = SIZE_MAX;
    std::size_t high_ = SIZE_MAX;
    unsigned fixed_ = 0;
};

} // namespace kestrel
