#include "kestrelml/text/TextNormaliser.h"

#include "kestrelml/text/CharacterFold.h"

#include <mutex>
#include <stdexcept>

namespace kestrelml::detail {
namespace {

constexpr const char16_t* kSpacesId = u"WSToSpaces";
constexpr const char16_t* kSpacesRule = u"[[:Zs:]]+ > ' ';";
constexpr const char16_t* kSearchId =
    u"NFD; [[:Mn:]] Remove; Lower; [[:Punctuation:]] Remove; "
    u"[\u0153\u00F8\u00E6\u00DF\u0111\u00F0\u00FE\u0142] ASCII; WSToSpaces; NFC";

void requireTransliterator(const icu::Transliterator* transliterator) {
    if (transliterator == nullptr) throw std::runtime_error("Failed to create transform rule");
}

/// ICU does not promise that one transliterator can be used by two threads at once.
void transliterate(const icu::Transliterator& transliterator, icu::UnicodeString& text) {
    static std::mutex oneAtATime;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    transliterator.transliterate(text);
}

} // namespace

icu::Transliterator* createSearchTransliterator() {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    auto* spaces =
        icu::Transliterator::createFromRules(kSpacesId, kSpacesRule, UTRANS_FORWARD, where, status);
    if (U_FAILURE(status) || spaces == nullptr) return nullptr;
    icu::Transliterator::registerInstance(spaces); // takes ownership
    return icu::Transliterator::createInstance(kSearchId, UTRANS_FORWARD, status);
}

void normalizeForSearch(const icu::Transliterator* transliterator, icu::UnicodeString& text) {
    requireTransliterator(transliterator);
    thread_local std::u16string folded;
    folded.clear();
    if (appendFolded(viewOf(text), folded)) {
        text.setTo(folded.data(), static_cast<int32_t>(folded.size()));
    } else {
        transliterate(*transliterator, text);
        text = trimSpaces(text);
    }
}

void appendNormalized(const icu::Transliterator* transliterator, std::u16string_view text,
                      std::u16string& normal) {
    requireTransliterator(transliterator);
    if (appendFolded(text, normal)) return;
    icu::UnicodeString copy(text.data(), static_cast<int32_t>(text.size()));
    transliterate(*transliterator, copy);
    normal += viewOf(trimSpaces(copy));
}

icu::UnicodeString trimSpaces(const icu::UnicodeString& text) {
    int32_t start = 0;
    int32_t end = text.length();
    while (start < end && text[start] == u' ')
        ++start;
    while (end > start && text[end - 1] == u' ')
        --end;
    return {text, start, end - start};
}

} // namespace kestrelml::detail
