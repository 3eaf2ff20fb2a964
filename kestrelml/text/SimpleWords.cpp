#include "kestrelml/text/SimpleWords.h"

#include <unicode/uchar.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace kestrelml::detail {
namespace {

enum class Kind : std::uint8_t {
    Unknown,
    Letter,
    Digit,
    JoinsLetters,
    JoinsDigits,
    JoinsBoth,
    Apart, ///< Belongs to no word.
};

Kind classify(UChar32 c) {
    // The root rules differ from the property here.
    if (c == ':') return Kind::Apart;
    if (c == '@') return Kind::Unknown;
    if (u_getIntPropertyValue(c, UCHAR_LINE_BREAK) == U_LB_COMPLEX_CONTEXT) return Kind::Unknown;
    switch (u_getIntPropertyValue(c, UCHAR_WORD_BREAK)) {
    case U_WB_ALETTER:
        return Kind::Letter;
    case U_WB_NUMERIC:
        return Kind::Digit;
    case U_WB_MIDLETTER:
        return Kind::JoinsLetters;
    case U_WB_MIDNUM:
        return Kind::JoinsDigits;
    case U_WB_MIDNUMLET:
    case U_WB_SINGLE_QUOTE:
        return Kind::JoinsBoth;
    case U_WB_OTHER:
    case U_WB_WSEGSPACE:
    case U_WB_DOUBLE_QUOTE:
    case U_WB_CR:
    case U_WB_LF:
    case U_WB_NEWLINE:
        return Kind::Apart;
    default:
        return Kind::Unknown;
    }
}

constexpr std::size_t kKnownUnits = 0x2070; // up to and with General Punctuation
using Table = std::array<Kind, kKnownUnits>;

const Table& table() {
    static const Table kinds = [] {
        Table made{};
        for (std::size_t unit = 0; unit < made.size(); ++unit)
            made[unit] = classify(static_cast<UChar32>(unit));
        return made;
    }();
    return kinds;
}

bool joins(Kind between, Kind around) {
    if (between == Kind::JoinsBoth) return true;
    return between == (around == Kind::Letter ? Kind::JoinsLetters : Kind::JoinsDigits);
}

} // namespace

bool appendSimpleWords(std::u16string_view text, std::vector<WordSpan>& words) {
    const Table& kinds = table();
    const auto kindAt = [&](std::size_t i) {
        if (i >= text.size()) return Kind::Apart;
        return text[i] < kinds.size() ? kinds[text[i]] : Kind::Unknown;
    };
    const std::size_t before = words.size();
    for (std::size_t i = 0; i < text.size();) {
        Kind kind = kindAt(i);
        if (kind == Kind::Unknown) {
            words.resize(before);
            return false;
        }
        const std::size_t start = i++;
        if (kind != Kind::Letter && kind != Kind::Digit) continue;
        for (;;) {
            const Kind next = kindAt(i);
            if (next == Kind::Letter || next == Kind::Digit) {
                kind = next;
                ++i;
            } else if (joins(next, kind) && kindAt(i + 1) == kind) {
                i += 2;
            } else {
                break;
            }
        }
        words.push_back({static_cast<std::int32_t>(start), static_cast<std::int32_t>(i)});
    }
    return true;
}

} // namespace kestrelml::detail
