#pragma once

#include <unicode/unistr.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// Names ICU's word break rules that belong to no language.
inline constexpr const char* kRootLanguage = "root";

/// A word's place in its text, in UTF-16 units; the end is exclusive.
struct WordSpan {
    std::int32_t start;
    std::int32_t end;

    friend bool operator==(const WordSpan& x, const WordSpan& y) = default;
};

/// Returns the words of `text` in order: numbers, letter words, kana and ideographs; no spaces or
/// punctuation.
/// @param language ICU locale identifier; the root rules apply to one that ICU does not know.
/// @throws std::runtime_error "BreakIterator::createWordInstance failed".
std::vector<WordSpan> findWords(const icu::UnicodeString& text, const std::string& language);

/// Number of bytes in which the first `units` UTF-16 units of a text are written in UTF-8.
std::size_t utf8Length(const icu::UnicodeString& text, std::int32_t units);

} // namespace kestrelml::detail
