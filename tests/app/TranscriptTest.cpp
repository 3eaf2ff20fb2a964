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

TEST(SpanOfNormalWord, IsTheWordThatTheTextHasThere) {
    const KsNNDatabase store("https://[", nullptr, nullptr, nullptr,
                             false); // makes the normaliser, reaches nobody
    EXPECT_EQ(spanOfNormalWord("the open-source bridge", "en", 2)->begin, 16U);
    for (const std::string text :
         {"An open-source, cold-hearted bridge is gone", "AC/DC don't play rock'n'roll on 3.5 of 10 e-mails",
          "well - I mean… \"yes\" & no", "L'été, c'est-à-dire jusqu'à août", "50 % of U.S. mother-in-laws"}) {
        const std::vector<icu::UnicodeString> normal = normalWords(icu::UnicodeString::fromUTF8(text));
        for (std::size_t i = 0; i < normal.size(); ++i) {
            const auto span = spanOfNormalWord(text, "en", static_cast<int>(i));
            ASSERT_TRUE(span.has_value()) << text << ", word " << i;
            icu::UnicodeString there =
                icu::UnicodeString::fromUTF8(text.substr(span->begin, span->end - span->begin));
            KsNNDatabase::normalizeForSearch(there);
            EXPECT_TRUE(normal[i].startsWith(there)) << text << ", word " << i;
        }
    }
}

TEST(TimedWords, AreCountedAsTheEngineCountedThem) {
    KsNNDBEntrySeg segment;
    segment.language = "en";
    segment.transcript = "Well - an open-source bridge, 50 %";
    const auto words = [&](std::size_t count) {
        segment.wordStartsMS.assign(count, 0);
        segment.wordEndsMS.assign(count, 100);
        std::vector<std::string> texts;
        for (const TimedWord& word : timedWords(segment))
            texts.push_back(word.text);
        return texts;
    };
    EXPECT_THAT(words(7), testing::ElementsAre("Well", "-", "an", "open-source", "bridge,", "50", "%"));
    EXPECT_THAT(words(6), testing::ElementsAre("Well -", "an", "open-", "source", "bridge,", "50 %"));
}

} // namespace
} // namespace kestrel
