#pragma once

#include "kestrelml/align/FlattenedText.h"
#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/PositionMap.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <cstddef>

namespace kestrelml::detail {

/// Finds where the lines of a script begin in a transcript: roughly by comparing the whole texts unit by
/// unit, then to the word with the phrase matcher.
class LineAligner {
public:
    /// One line's result and the excerpts that were compared; empty when the line was given up earlier.
    struct Result {
        KsNNAlignmentItem item{0, 0, 0.0F, 0};
        icu::UnicodeString scriptExcerpt;
        icu::UnicodeString transcriptExcerpt;
    };

    /// Keeps references to all arguments.
    LineAligner(const FlattenedText& script, const FlattenedText& transcript,
                const icu::Transliterator* transliterator);

    const PositionMap& positions() const { return mPositions; }
    /// Aligns line `index` of the script.
    Result align(std::size_t index) const;

private:
    std::int32_t endOfLine(std::size_t index) const;
    KsNNAlignmentItem place(const Result& excerpts, std::int32_t rough) const;
    const std::string& languageAt(std::int32_t offset) const;

    const FlattenedText& mScript;
    const FlattenedText& mTranscript;
    const icu::Transliterator* mTransliterator;
    PositionMap mPositions;
};

} // namespace kestrelml::detail
