#pragma once

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <string>
#include <vector>

namespace kestrelml::detail {

/// Appends the words of `text`, each in its normal form, which may be empty.
void appendNormalizedWords(const icu::Transliterator* transliterator, const icu::UnicodeString& text,
                           const std::string& language, std::vector<icu::UnicodeString>& words);

/// Finds where a phrase begins in a text, with misspellings.
///
/// Every run of as many words as the phrase has is compared with the phrase, both in normal form. Its score
/// is 1 - distance / length of the longer. Of runs that overlap the last one taken, only a strictly better
/// one replaces it. A text with no more words than the phrase is compared as a whole.
///
/// @param threshold  Lowest score of a match.
/// @param startWords Receives the first word of each match, after what it holds.
/// @param scores     Receives its score.
void findBestStartingWords(const icu::Transliterator* transliterator, const icu::UnicodeString& phrase,
                           const icu::UnicodeString& text, const std::string& language, float threshold,
                           std::vector<int>& startWords, std::vector<float>& scores);

} // namespace kestrelml::detail
