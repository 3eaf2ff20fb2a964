#pragma once

/// @file
/// Finds a phrase in text that a host has at hand, as the store's search finds it in segments.

#include "kestrelml/core/Export.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kestrelml::detail {
class PhraseMatcher;
}

/// A run of words that is like the phrase.
struct KsNNPhraseMatch {
    int wordIndex = 0;          ///< First matched word, as `KsNNDatabase::get_words_in_string` counts.
    int wordCount = 0;          ///< Number of matched words.
    std::size_t matchBegin = 0; ///< Where the matched words begin in the text, in bytes.
    std::size_t matchEnd = 0;   ///< Where they end, exclusive.
    float score = 0.0F;         ///< 0 to 1.
};

/// Finds a phrase, misspellings included. Prepared once for a phrase, asked for each text. Copies share what
/// was prepared; one object may be used by several threads at once.
class KSNN_API KsNNPhraseMatcher {
public:
    /// @param phrase   Phrase, UTF-8; one without words matches nothing.
    /// @param language ICU locale whose rules part phrase and texts into words.
    /// @throws std::runtime_error when the search normaliser could not be created, or ICU has no word break
    /// rules.
    KsNNPhraseMatcher(const std::string& phrase, const std::string& language);

    /// Returns the matches that score at least `threshold` (0 to 1), in the order of the text. None overlap.
    /// @throws std::runtime_error as the constructor.
    std::vector<KsNNPhraseMatch> findIn(const std::string& text, float threshold) const;

private:
    std::shared_ptr<const kestrelml::detail::PhraseMatcher> mMatcher;
};
