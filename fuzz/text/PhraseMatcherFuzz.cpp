// The fast phrase matcher against the plain one.

#include "fuzz/text/Require.h"
#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/TextNormaliser.h"
#include "oracles/Oracles.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The first byte chooses threshold and language, a line feed ends the phrase.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const icu::Transliterator* const transliterator = kestrelml::detail::createSearchTransliterator();
    static const char* const languages[] = {"en", "ja", "th", "fi", ""};
    if (size < 1 || size > 1000) return 0;
    const float threshold = static_cast<float>(data[0] % 51) / 50.0F;
    const char* language = languages[data[0] / 52];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) return 0;
    const auto unicode = [](std::string_view utf8) {
        return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
    };
    const icu::UnicodeString phrase = unicode(bytes.substr(0, end));
    const icu::UnicodeString text = unicode(bytes.substr(end + 1));

    const kestrelml::detail::PhraseMatcher matcher(transliterator, phrase, language);
    kestrel_fuzz::require(
        matcher.findIn(text, threshold) ==
            kestrel_test::plainPhraseMatches(*transliterator, phrase, text, language, threshold),
        "matches");
    kestrel_fuzz::require(
        kestrelml::detail::findWords(text, language) == kestrel_test::plainWords(text, language), "words");
    return 0;
}
