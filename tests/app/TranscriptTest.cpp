#include "apps/kestrel/clips/Transcript.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

std::vector<icu::UnicodeString> normalWords(icu::UnicodeString text) {
    KsNNDatabase::normalizeForSearch(text);
    std::vector<icu::UnicodeString> words;
    KsNNDatabase::get_words_in_string(text, "", words);
    return words;
}

TEST(WordOfNormalForm, IsTheWordThatTheTextHasThere) {
    const KsNNDatabase store("https://[", nullptr, nullptr, nullptr,
                             false); // makes the normaliser, reaches nobody
    EXPECT_EQ(wordOfNormalForm("the open-source bridge", "en", 2), 3);
    for (const char* const text :
         {"An open-source, cold-hearted bridge is gone", "AC/DC don't play rock'n'roll on 3.5 of 10 e-mails",
          "well - I mean… \"yes\" & no", "L'été, c'est-à-dire jusqu'à août", "50 % of U.S. mother-in-laws"}) {
        const std::vector<icu::UnicodeString> normal = normalWords(icu::UnicodeString::fromUTF8(text));
        for (std::size_t i = 0; i < normal.size(); ++i) {
            const auto span = wordSpan(text, "en", wordOfNormalForm(text, "en", static_cast<int>(i)), 1);
            ASSERT_TRUE(span.has_value()) << text << ", word " << i;
            icu::UnicodeString there =
                icu::UnicodeString::fromUTF8(std::string(text).substr(span->begin, span->end - span->begin));
            KsNNDatabase::normalizeForSearch(there);
            EXPECT_TRUE(normal[i].startsWith(there)) << text << ", word " << i;
        }
    }
}

} // namespace
} // namespace kestrel
