#include "engine/Analyzer.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <array>

namespace kestrel::index {

namespace {

constexpr std::size_t kMaximumTermUnits = 255;

// ICU's macros convert between signed and unsigned bytes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"

char32_t nextPoint(std::string_view utf8, std::size_t& at) {
    UChar32 c = 0;
    U8_NEXT_OR_FFFD(utf8.data(), at, utf8.size(), c);
    return static_cast<char32_t>(c);
}

void appendPoint(UChar32 c, std::string& utf8) {
    char buffer[U8_MAX_LENGTH];
    int32_t length = 0;
    U8_APPEND_UNSAFE(buffer, length, c);
    utf8.append(buffer, static_cast<std::size_t>(length));
}

#pragma GCC diagnostic pop

/// Word_Break classes, as far as the boundary rules distinguish them.
enum class Kind : std::uint8_t {
    Other,
    Space,
    Extend,
    Letter,
    Hebrew,
    Numeric,
    Katakana,
    Joiner, ///< ExtendNumLet, such as "_"
    MidLetter,
    MidNumber,
    MidBoth,
    SingleQuote,
    DoubleQuote,
    Regional,
    Ideograph, ///< Han and hiragana: one term each
    Complex,   ///< scripts without spaces between words
    Emoji,
    ZeroWidthJoiner,
};

Kind classify(char32_t point) {
    const auto c = static_cast<UChar32>(point);
    switch (static_cast<UWordBreakValues>(u_getIntPropertyValue(c, UCHAR_WORD_BREAK))) {
    case U_WB_ALETTER:
        return Kind::Letter;
    case U_WB_HEBREW_LETTER:
        return Kind::Hebrew;
    case U_WB_NUMERIC:
        return Kind::Numeric;
    case U_WB_KATAKANA:
        return Kind::Katakana;
    case U_WB_EXTENDNUMLET:
        return Kind::Joiner;
    case U_WB_MIDLETTER:
        return Kind::MidLetter;
    case U_WB_MIDNUM:
        return Kind::MidNumber;
    case U_WB_MIDNUMLET:
        return Kind::MidBoth;
    case U_WB_SINGLE_QUOTE:
        return Kind::SingleQuote;
    case U_WB_DOUBLE_QUOTE:
        return Kind::DoubleQuote;
    case U_WB_REGIONAL_INDICATOR:
        return Kind::Regional;
    case U_WB_ZWJ:
        return Kind::ZeroWidthJoiner;
    case U_WB_EXTEND:
    case U_WB_FORMAT:
        return u_getIntPropertyValue(c, UCHAR_LINE_BREAK) == U_LB_COMPLEX_CONTEXT ? Kind::Complex
                                                                                  : Kind::Extend;
    case U_WB_CR:
    case U_WB_LF:
    case U_WB_NEWLINE:
    case U_WB_WSEGSPACE:
        return Kind::Space;
    default:
        break;
    }
    if (u_getIntPropertyValue(c, UCHAR_LINE_BREAK) == U_LB_COMPLEX_CONTEXT) return Kind::Complex;
    UErrorCode status = U_ZERO_ERROR;
    const UScriptCode script = uscript_getScript(c, &status);
    if (script == USCRIPT_HAN || script == USCRIPT_HIRAGANA) return Kind::Ideograph;
    if (u_hasBinaryProperty(c, UCHAR_EXTENDED_PICTOGRAPHIC) && c > 0xFF) return Kind::Emoji;
    return Kind::Other;
}

Kind kindOf(char32_t point) {
    static const auto table = [] {
        std::array<Kind, 0x800> kinds{};
        for (char32_t c = 0; c < kinds.size(); ++c)
            kinds[c] = classify(c);
        return kinds;
    }();
    return point < table.size() ? table[point] : classify(point);
}

bool isLetter(Kind kind) {
    return kind == Kind::Letter || kind == Kind::Hebrew;
}

bool extends(Kind kind) {
    return kind == Kind::Extend || kind == Kind::ZeroWidthJoiner;
}

bool joinsLetters(Kind kind) {
    return kind == Kind::MidLetter || kind == Kind::MidBoth || kind == Kind::SingleQuote;
}

bool joinsNumbers(Kind kind) {
    return kind == Kind::MidNumber || kind == Kind::MidBoth || kind == Kind::SingleQuote;
}

struct Symbol {
    char32_t point;
    Kind kind;
};

class Segmenter {
public:
    explicit Segmenter(std::string_view utf8) { decode(utf8); }

    std::vector<std::string> terms() {
        std::size_t start = 0;
        while (start < mSymbols.size()) {
            const std::size_t end = wordEnd(start);
            if (isTerm(start, end)) emit(start, end);
            start = end;
        }
        return std::move(mTerms);
    }

private:
    void decode(std::string_view utf8) {
        mSymbols.reserve(utf8.size());
        for (std::size_t i = 0; i < utf8.size();) {
            const char32_t point = nextPoint(utf8, i);
            mSymbols.push_back({point, kindOf(point)});
        }
    }

    /// Position after the marks that follow the symbol at i; they never begin a word.
    std::size_t afterMarks(std::size_t i) const {
        ++i;
        while (i < mSymbols.size() && extends(mSymbols[i].kind))
            ++i;
        return i;
    }

    Kind kindAt(std::size_t i) const { return i < mSymbols.size() ? mSymbols[i].kind : Kind::Space; }

    std::size_t wordEnd(std::size_t i) const {
        switch (mSymbols[i].kind) {
        case Kind::Space:
            return i + 1;
        case Kind::Complex:
            return complexEnd(i);
        case Kind::Emoji:
            return emojiEnd(i);
        case Kind::Regional: {
            const std::size_t second = afterMarks(i);
            return kindAt(second) == Kind::Regional ? afterMarks(second) : second;
        }
        case Kind::Letter:
        case Kind::Hebrew:
        case Kind::Numeric:
        case Kind::Katakana:
        case Kind::Joiner:
            return runEnd(i);
        default:
            return afterMarks(i);
        }
    }

    std::size_t complexEnd(std::size_t i) const {
        while (kindAt(i) == Kind::Complex || (extends(kindAt(i)) && i < mSymbols.size()))
            ++i;
        return i;
    }

    std::size_t emojiEnd(std::size_t i) const {
        for (;;) {
            const std::size_t next = afterMarks(i);
            if (mSymbols[next - 1].kind != Kind::ZeroWidthJoiner || kindAt(next) != Kind::Emoji) return next;
            i = next;
        }
    }

    /// Rules WB5 to WB13 of UAX #29.
    std::size_t runEnd(std::size_t i) const {
        Kind current = mSymbols[i].kind;
        std::size_t next = afterMarks(i);
        for (;;) {
            const Kind following = kindAt(next);
            if (continues(current, following)) {
                current = following;
                next = afterMarks(next);
                continue;
            }
            if (next >= mSymbols.size()) return next;
            const std::size_t beyond = afterMarks(next);
            const Kind after = kindAt(beyond);
            const bool bridged =
                (isLetter(current) && joinsLetters(following) && isLetter(after)) ||
                (current == Kind::Numeric && joinsNumbers(following) && after == Kind::Numeric) ||
                (current == Kind::Hebrew && following == Kind::DoubleQuote && after == Kind::Hebrew);
            if (bridged) {
                current = after;
                next = afterMarks(beyond);
                continue;
            }
            return current == Kind::Hebrew && following == Kind::SingleQuote ? beyond : next;
        }
    }

    static bool continues(Kind current, Kind following) {
        const bool letterOrNumber = isLetter(current) || current == Kind::Numeric;
        if (letterOrNumber && (isLetter(following) || following == Kind::Numeric)) return true;
        if (current == Kind::Katakana && following == Kind::Katakana) return true;
        if (following == Kind::Joiner)
            return letterOrNumber || current == Kind::Katakana || current == Kind::Joiner;
        return current == Kind::Joiner &&
               (isLetter(following) || following == Kind::Numeric || following == Kind::Katakana);
    }

    bool isTerm(std::size_t start, std::size_t end) const {
        for (std::size_t i = start; i < end; ++i) {
            switch (mSymbols[i].kind) {
            case Kind::Letter:
            case Kind::Hebrew:
            case Kind::Numeric:
            case Kind::Katakana:
            case Kind::Ideograph:
            case Kind::Complex:
            case Kind::Emoji:
                return true;
            case Kind::Regional:
                return end - start > 1;
            default:
                break;
            }
        }
        return false;
    }

    void emit(std::size_t start, std::size_t end) {
        std::string term;
        std::size_t units = 0;
        for (std::size_t i = start; i < end; ++i) {
            const std::size_t width = mSymbols[i].point > 0xFFFF ? 2 : 1;
            if (units + width > kMaximumTermUnits) {
                mTerms.push_back(std::move(term));
                term.clear();
                units = 0;
            }
            appendLower(mSymbols[i].point, term);
            units += width;
        }
        mTerms.push_back(std::move(term));
    }

    static void appendLower(char32_t point, std::string& term) {
        if (point < 0x80) {
            term.push_back(static_cast<char>(point >= U'A' && point <= U'Z' ? point + 32 : point));
            return;
        }
        appendPoint(u_tolower(static_cast<UChar32>(point)), term);
    }

    std::vector<Symbol> mSymbols;
    std::vector<std::string> mTerms;
};

} // namespace

std::vector<std::string> analyze(std::string_view utf8) {
    return Segmenter(utf8).terms();
}

std::size_t utf16Length(std::string_view utf8) {
    std::size_t units = 0;
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        units += byte >= 0xF0 ? 2U : (byte & 0xC0) != 0x80 ? 1U : 0U;
    }
    return units;
}

std::u32string codePoints(std::string_view utf8) {
    std::u32string points;
    points.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();)
        points.push_back(nextPoint(utf8, i));
    return points;
}

} // namespace kestrel::index
