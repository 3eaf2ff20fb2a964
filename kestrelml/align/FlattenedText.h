#pragma once

#include "kestrelml/align/KsNNTextLines.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// A list of lines in normal form as one text; maps an offset back to its line and word.
class FlattenedText {
public:
    struct Line {
        std::int32_t offset;
        std::int32_t lineNumber;
        std::string language;
    };
    struct Word {
        std::int32_t offset;
        std::int32_t index; ///< Within its line, from 0.
        std::size_t line;   ///< Position in `lines()`.
    };

    /// Skips lines that are empty in normal form; joins the others with single spaces.
    /// @throws std::runtime_error as `normalizeForSearch` and `findWords` do.
    FlattenedText(const KsNNTextLines& lines, const icu::Transliterator* transliterator);

    const icu::UnicodeString& text() const { return mText; }
    /// In ascending order of offset, as are the words.
    const std::vector<Line>& lines() const { return mLines; }
    const std::vector<Word>& words() const { return mWords; }

    /// The last line or word that begins at or before `offset`; null when there is none.
    const Line* lineAt(std::int32_t offset) const;
    const Word* wordAt(std::int32_t offset) const;
    bool wordBeginsAt(std::int32_t offset) const;

private:
    void append(const icu::UnicodeString& normal, std::int32_t lineNumber, const char* language);

    icu::UnicodeString mText;
    std::vector<Line> mLines;
    std::vector<Word> mWords;
};

} // namespace kestrelml::detail
