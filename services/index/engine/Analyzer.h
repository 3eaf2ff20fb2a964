#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

/// The terms of a text: its words by the Unicode word boundaries (UAX #29), in lower case. Words without a
/// letter, digit or emoji are dropped; each ideograph and hiragana character is a term; a run of a script
/// written without spaces (Thai, Lao, Khmer, Burmese) is one term; a word of more than 255 UTF-16 units is
/// cut into pieces of 255.
std::vector<std::string> analyze(std::string_view utf8);

/// Number of UTF-16 code units, in which the length limits of keywords are given.
std::size_t utf16Length(std::string_view utf8);

/// The code points of the text.
std::u32string codePoints(std::string_view utf8);

} // namespace kestrel::index
