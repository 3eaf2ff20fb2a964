#pragma once

#include "kestrelml/text/EditDistance.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// A run of words of a text that is like a phrase.
struct PhraseMatch {
    int firstWord;      ///< Index among the words of the text.
    int wordCount;      ///< As many words as the phrase has, or all words of a shorter text.
    float score;        ///< 1 - edit distance / length of the longer, 0 to 1.
    std::int32_t start; ///< Where the run begins in the text, in UTF-16 units.
    std::int32_t end;   ///< Where it ends, exclusive.

    friend bool operator==(const PhraseMatch& x, const PhraseMatch& y) = default;
};

/// Finds where a phrase is spoken in texts, misspellings included. Built once for a phrase and used for
/// each text. May be used by several threads at once.
///
/// Every run of as many words as the phrase has is compared with the phrase, both in normal form. Of runs
/// that overlap the last one taken, only a strictly better one replaces it. A text with no more words than
/// the phrase is compared as a whole. A phrase without words matches nothing.
class PhraseMatcher {
public:
    /// @param transliterator Makes the normal form; kept by reference.
    /// @param language       ICU locale identifier by whose rules phrase and texts are split into words.
    /// @throws std::runtime_error as `findWords` and `appendNormalized` do; so does `findIn`.
    PhraseMatcher(const icu::Transliterator* transliterator, const icu::UnicodeString& phrase,
                  std::string language);

    /// Returns the matches that score at least `threshold`, in the order of the text. Higher thresholds
    /// are faster.
    std::vector<PhraseMatch> findIn(const icu::UnicodeString& text, float threshold) const;

private:
    struct NormalWords;
    class RunScorer;

    PhraseMatcher(const icu::Transliterator* transliterator, const NormalWords& phrase, std::string language);

    const icu::Transliterator* mTransliterator;
    std::string mLanguage;
    std::size_t mWordCount;
    std::size_t mLength; ///< of the phrase in normal form, in UTF-16 units
    EditDistance mDistance;
};

} // namespace kestrelml::detail
