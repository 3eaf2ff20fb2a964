// The normaliser against ICU's transliterator.

#include "fuzz/text/Require.h"
#include "kestrelml/text/TextNormaliser.h"
#include "oracles/Oracles.h"

#include <cstddef>
#include <cstdint>

/// Two bytes make a UTF-16 unit.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const icu::Transliterator* const transliterator = kestrelml::detail::createSearchTransliterator();
    icu::UnicodeString text;
    for (std::size_t i = 0; i + 1 < size && i < 400; i += 2)
        text += static_cast<char16_t>(data[i] << 8 | data[i + 1]);
    const icu::UnicodeString plain = kestrel_test::plainNormalForm(*transliterator, text);
    kestrelml::detail::normalizeForSearch(transliterator, text);
    kestrel_fuzz::require(text == plain, "normal form");
    return 0;
}
