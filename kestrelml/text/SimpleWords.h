#pragma once

#include "kestrelml/text/Words.h"

#include <string_view>
#include <vector>

namespace kestrelml::detail {

/// Appends the words of `text` as ICU's root word rules see them, if each of its UTF-16 units is a letter,
/// digit or sign of a script that puts spaces between words.
///
/// Returns false, leaving `words` unchanged, for text that holds anything else: combining marks, scripts that
/// need a dictionary, ideographs, surrogates.
bool appendSimpleWords(std::u16string_view text, std::vector<WordSpan>& words);

} // namespace kestrelml::detail
