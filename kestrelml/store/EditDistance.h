#pragma once

#include <cstddef>
#include <string_view>

namespace kestrelml::detail {

/// Levenshtein distance over UTF-16 units: unit cost for insertion, deletion and substitution.
std::size_t editDistance(std::u16string_view a, std::u16string_view b);

} // namespace kestrelml::detail
