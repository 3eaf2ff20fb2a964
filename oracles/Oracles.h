#pragma once

/// @file
/// The slow and obvious forms, against which the fast ones are tested, fuzzed and timed.

#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/Words.h"
#include "kestrelml/text/matching/SequenceMatcher.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <string>
#include <string_view>
#include <vector>

namespace kestrel_test {

/// One run length for each pair of places, one pass for each block.
std::vector<kestrelml::detail::MatchingBlock> plainMatchingBlocks(std::u16string_view a,
                                                                  std::u16string_view b);

/// ICU's transliterator and nothing else.
icu::UnicodeString plainNormalForm(const icu::Transliterator& transliterator, icu::UnicodeString text);

/// The table of distances, one row at a time.
std::size_t plainEditDistance(const icu::UnicodeString& a, const icu::UnicodeString& b);

/// ICU's word iterator and nothing else, a new one for each text.
std::vector<kestrelml::detail::WordSpan> plainWords(const icu::UnicodeString& text,
                                                    const std::string& language);

/// A new string and a full table of distances for each run of words.
std::vector<kestrelml::detail::PhraseMatch> plainPhraseMatches(const icu::Transliterator& transliterator,
                                                               const icu::UnicodeString& phrase,
                                                               const icu::UnicodeString& text,
                                                               const std::string& language, float threshold);

} // namespace kestrel_test
