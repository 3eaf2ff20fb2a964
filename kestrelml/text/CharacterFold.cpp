#include "kestrelml/text/CharacterFold.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>

#include <array>
#include <atomic>
#include <memory>

namespace kestrelml::detail {
namespace {

// A table entry is the one unit that a unit becomes. No unit becomes a surrogate, so surrogates are free to
// mean something else.
constexpr char16_t kRemoved = 0xD800;
constexpr char16_t kNeedsContext = 0xD801;
constexpr char16_t kSigma = 0xD802; // capital: its lower case depends on whether it ends a word
constexpr char16_t kFirstPair = 0xDC00;
constexpr std::array<std::u16string_view, 4> kPairs = {u"ae", u"oe", u"ss", u"th"};

constexpr char16_t kCapitalSigma = 0x03A3;
constexpr char16_t kSmallSigma = 0x03C3;
constexpr char16_t kFinalSigma = 0x03C2;

constexpr std::size_t kPageSize = 256;
using Page = std::array<char16_t, kPageSize>;

const char16_t* asciiOf(UChar32 letter) {
    switch (letter) {
    case 0x0153:
        return u"oe"; // œ
    case 0x00F8:
        return u"o"; // ø
    case 0x00E6:
        return u"ae"; // æ
    case 0x00DF:
        return u"ss"; // ß
    case 0x0111:      // đ
    case 0x00F0:      // ð
        return u"d";
    case 0x00FE:
        return u"th"; // þ
    case 0x0142:
        return u"l"; // ł
    default:
        return nullptr;
    }
}

void appendFoldedPart(UChar32 part, icu::UnicodeString& folded) {
    if (u_charType(part) == U_NON_SPACING_MARK) return;
    const UChar32 lower = u_tolower(part);
    if ((U_GET_GC_MASK(lower) & U_GC_P_MASK) != 0) return;
    if (const char16_t* ascii = asciiOf(lower)) {
        folded.append(ascii, -1);
    } else {
        folded.append(u_charType(lower) == U_SPACE_SEPARATOR ? UChar32{' '} : lower);
    }
}

char16_t encode(const icu::UnicodeString& folded) {
    if (folded.isEmpty()) return kRemoved;
    if (folded.length() == 1) return folded[0];
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        if (folded == icu::UnicodeString(kPairs[i].data(), 2)) return static_cast<char16_t>(kFirstPair + i);
    }
    return kNeedsContext;
}

/// True when some character of the text could join the character that comes before it.
bool reachesBack(const icu::UnicodeString& text, const icu::Normalizer2& composer) {
    for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
        if (!composer.hasBoundaryBefore(text.char32At(i))) return true;
    }
    return false;
}

char16_t foldUnit(char16_t unit, const icu::Normalizer2& decomposer, const icu::Normalizer2& composer) {
    if (U16_IS_SURROGATE(unit)) return kNeedsContext;
    if (unit == kCapitalSigma) return kSigma;
    icu::UnicodeString parts;
    if (!decomposer.getDecomposition(unit, parts)) parts = unit;
    icu::UnicodeString folded;
    for (int32_t i = 0; i < parts.length(); i = parts.moveIndex32(i, 1)) {
        appendFoldedPart(parts.char32At(i), folded);
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString composed = composer.normalize(folded, status);
    if (U_FAILURE(status) || reachesBack(composed, composer)) return kNeedsContext;
    return encode(composed);
}

std::unique_ptr<const Page> makePage(std::size_t number) {
    auto page = std::make_unique<Page>();
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* decomposer = icu::Normalizer2::getNFDInstance(status);
    const icu::Normalizer2* composer = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) {
        page->fill(kNeedsContext);
        return page;
    }
    for (std::size_t i = 0; i < kPageSize; ++i) {
        (*page)[i] = foldUnit(static_cast<char16_t>(number * kPageSize + i), *decomposer, *composer);
    }
    return page;
}

/// The page for units `number` * 256 and up, made when first asked for and kept until the process ends.
const Page& pageAt(std::size_t number) {
    static std::array<std::atomic<const Page*>, 65536 / kPageSize> pages{};
    if (const Page* page = pages[number].load(std::memory_order_acquire)) return *page;
    std::unique_ptr<const Page> made = makePage(number);
    const Page* expected = nullptr;
    if (pages[number].compare_exchange_strong(expected, made.get(), std::memory_order_acq_rel)) {
        return *made.release();
    }
    return *expected;
}

/// True when, past what case ignores, a cased letter stands before place `i` and none after it.
bool isFinal(std::u16string_view text, std::size_t i) {
    const auto isIgnored = [](char16_t unit) { return u_hasBinaryProperty(unit, UCHAR_CASE_IGNORABLE) != 0; };
    const auto isCased = [](char16_t unit) { return u_hasBinaryProperty(unit, UCHAR_CASED) != 0; };
    std::size_t before = i;
    while (before > 0 && isIgnored(text[before - 1]))
        --before;
    if (before == 0 || !isCased(text[before - 1])) return false;
    std::size_t after = i + 1;
    while (after < text.size() && isIgnored(text[after]))
        ++after;
    return after == text.size() || !isCased(text[after]);
}

/// Writes the folded text, at most twice as long, to `out`. Returns its end, or null when context is needed.
char16_t* fold(std::u16string_view text, char16_t* const out) {
    std::size_t pageNumber = 0;
    const Page* page = &pageAt(pageNumber);
    char16_t* end = out;
    char16_t last = u' '; // a space after a space is dropped, and so is one at the start
    for (const char16_t& unit : text) {
        if (unit / kPageSize != pageNumber) {
            pageNumber = unit / kPageSize;
            page = &pageAt(pageNumber);
        }
        const char16_t folded = (*page)[unit % kPageSize];
        if (!U16_IS_SURROGATE(folded)) {
            *end = folded;
            end += folded == u' ' && last == u' ' ? 0 : 1;
            last = folded;
        } else if (folded >= kFirstPair) {
            const std::u16string_view pair = kPairs[static_cast<std::size_t>(folded - kFirstPair)];
            *end++ = pair[0];
            *end++ = pair[1];
            last = pair[1];
        } else if (folded == kSigma) {
            last = isFinal(text, static_cast<std::size_t>(&unit - text.data())) ? kFinalSigma : kSmallSigma;
            *end++ = last;
        } else if (folded == kNeedsContext) {
            return nullptr;
        }
    }
    return end != out && last == u' ' ? end - 1 : end;
}

} // namespace

bool appendFolded(std::u16string_view text, std::u16string& normal) {
    const std::size_t before = normal.size();
    normal.resize(before + 2 * text.size());
    const char16_t* end = fold(text, normal.data() + before);
    normal.resize(end == nullptr ? before : static_cast<std::size_t>(end - normal.data()));
    return end != nullptr;
}

} // namespace kestrelml::detail
