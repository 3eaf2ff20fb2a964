#pragma once

#include <cstdint>
#include <vector>

namespace kestrelml::detail {

/// Returns the positions of the suffixes of `text` in ascending order, in linear time (induced sorting).
/// @param text Symbols from 0 to `alphabet` - 1, each of which occurs; the last symbol is 0, its only one.
std::vector<std::int32_t> sortSuffixes(const std::vector<std::int32_t>& text, std::int32_t alphabet);

/// Returns, for each suffix in sorted order, the length of what it has in common with the one before it, and
/// a -1 at either end: element 0, and one after the last.
std::vector<std::int32_t> commonPrefixes(const std::vector<std::int32_t>& text,
                                         const std::vector<std::int32_t>& suffixes);

} // namespace kestrelml::detail
