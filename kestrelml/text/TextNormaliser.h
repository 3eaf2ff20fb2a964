#pragma once

/// @file
/// The normal form in which search and alignment compare text.

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <string>
#include <string_view>

namespace kestrelml::detail {

/// Makes the transliterator that defines the normal form: no accents, case or punctuation, single spaces.
/// The caller owns it. Null when ICU cannot make it.
icu::Transliterator* createSearchTransliterator();

/// Replaces `text` by its normal form. May be called from several threads with one transliterator.
/// @throws std::runtime_error "Failed to create transform rule" when `transliterator` is null.
void normalizeForSearch(const icu::Transliterator* transliterator, icu::UnicodeString& text);

/// Appends the normal form of `text` to `normal`. Otherwise as `normalizeForSearch`.
void appendNormalized(const icu::Transliterator* transliterator, std::u16string_view text,
                      std::u16string& normal);

/// Returns `text` without the U+0020 at its ends; other white space stays.
icu::UnicodeString trimSpaces(const icu::UnicodeString& text);

inline std::u16string_view viewOf(const icu::UnicodeString& text) {
    return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

} // namespace kestrelml::detail
