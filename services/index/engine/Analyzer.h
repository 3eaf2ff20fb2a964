#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

/// The terms of a text: its words by the Unicode word boundaries (UAX #29), in lower case. Words without a
/// letter, digit or emoji are no terms; ideographs and hiragana are terms one by one; runs of scripts written
/// without spaces (Thai, Lao, Khmer, Burmese) are one term; a word of more than 255 UTF-16 units is cut into
/// pieces of 255.
std::vector<std::string> analyze(std::string_view utf8);

/// Number of UTF-16 units of the text, which is what limits on lengths of keywords count.
std::size_t utf16Length(std::string_view utf8);

/// The code points of the text.
std::u32string codePoints(std::string_view utf8);

} // namespace kestrel::index
