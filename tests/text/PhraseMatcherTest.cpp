#include "kestrelml/text/WordMatch.h"

#include "kestrelml/text/EditDistance.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"
#include "oracles/Oracles.h"
#include "tests/text/Prose.h"
#include "tests/text/RandomText.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <memory>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;
using testing::FloatNear;
using testing::Pointwise;

icu::UnicodeString unicode(const std::u16string& text) {
    return {text.data(), static_cast<int32_t>(text.size())};
}

class WordMatch : public testing::Test {
protected:
    WordMatch() : mTransliterator(createSearchTransliterator()) {}

    PlainHits find(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                   const std::string& language, float threshold) const {
        PlainHits hits;
        findBestStartingWords(mTransliterator.get(), phrase, text, language, threshold, hits.startWords,
                              hits.scores);
        return hits;
    }
    static std::vector<float> everyKindOfThreshold() {
        return {-1.0F,
                0.0F,
                0.01F,
                0.3F,
                0.5F,
                0.6F,
                0.75F,
                0.9F,
                1.0F,
                1.5F,
                std::numeric_limits<float>::quiet_NaN()};
    }
    void expectPlain(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                     const std::string& language,
                     const std::vector<float>& thresholds = everyKindOfThreshold()) const {
        for (const float threshold : thresholds) {
            const PlainHits found = find(phrase, text, language, threshold);
            const PlainHits plain =
                plainBestStartingWords(*mTransliterator, phrase, text, language, threshold);
            EXPECT_EQ(found.startWords, plain.startWords) << threshold;
            EXPECT_EQ(found.scores, plain.scores) << threshold;
        }
        if (!HasFailure()) return;
        std::string shown;
        ADD_FAILURE() << language << ": " << phrase.toUTF8String(shown) << " in "
                      << text.toUTF8String(shown += " | ");
    }

    std::unique_ptr<icu::Transliterator> mTransliterator;
};

TEST_F(WordMatch, ScoresOfKnownPhrases) {
    struct Case {
        const char16_t* phrase;
        const char16_t* text;
        const char* language;
        std::vector<int> startWords;
        std::vector<float> scores;
    };
    const Case cases[] = {
        {u" Rich peeple!", u"filthy rich people, oh rich people ", "en", {1, 4}, {0.9091F, 0.9091F}},
        {u" Rich people!", u"filthy      rich people", "en", {1}, {1.0F}},
        {u" Rich peeple!", u"filthy rich people", "en", {1}, {0.9091F}},
        {u"  why, can't rich people!", u"Oh WHY can't rich people understand?", "en", {1}, {1.0F}},
        {u"rich people", u" Rich people!", "en", {0}, {1.0F}},
        {u"hApحباPy", u"Shiny Happy pEoPle", "en", {1}, {0.625F}},
        {u"hApحباPy", u"Shiny hApحباPy pEoPle", "en", {1}, {1.0F}},
        {u"b", u"   ABC   !.?", "en", {}, {}},
        {u"   abc   !.?", u"b", "en", {}, {}},
        {u"b", u"    def   abc   !.?", "en", {}, {}},
        {u"    def   abc   !.?", u"b", "en", {}, {}},
        {u"filthy rich people", u" Rich peeple!", "en", {}, {}},
        {u"Shiny Happy pEoPle!", u"hApحباPy", "en", {}, {}},
        {u"مرحبا", u"مرحبا", "ar", {0}, {1.0F}},
    };
    for (const Case& expected : cases) {
        const PlainHits hits = find(expected.phrase, expected.text, expected.language, 0.6F);
        EXPECT_EQ(hits.startWords, expected.startWords);
        EXPECT_THAT(hits.scores, Pointwise(FloatNear(0.00005F), expected.scores));
        expectPlain(expected.phrase, expected.text, expected.language);
    }
}

TEST_F(WordMatch, ScoresBelowTheUsualThreshold) {
    EXPECT_THAT(find(u"b", u"   ABC   !.?", "en", 0.0F).scores, ElementsAre(FloatNear(0.3333F, 0.0001F)));
    EXPECT_THAT(find(u"    def   abc   !.?", u"b", "en", 0.0F).scores,
                ElementsAre(FloatNear(0.1429F, 0.0001F)));
    EXPECT_THAT(find(u"filthy rich people", u" Rich peeple!", "en", 0.0F).scores,
                ElementsAre(FloatNear(0.5556F, 0.0001F)));
    EXPECT_THAT(find(u"Shiny Happy pEoPle!", u"hApحباPy", "en", 0.0F).scores,
                ElementsAre(FloatNear(0.2222F, 0.0001F)));
}

TEST_F(WordMatch, OverlappingRunsLeaveTheBest) {
    EXPECT_THAT(find(u" Rich peeple!", u"filthy rich people, oh rich people ", "en", 0.0F).startWords,
                ElementsAre(1, 4));
    EXPECT_THAT(find(u"a b", u"a b a b a b", "en", 1.0F).startWords, ElementsAre(0, 2, 4));
    EXPECT_THAT(find(u"one two", u"one twx one twx", "en", 0.5F).startWords, ElementsAre(0, 2))
        << "ties keep the earlier";
}

TEST_F(WordMatch, NoWords) {
    for (const float threshold : {-1.0F, 0.0F, 0.5F}) {
        for (const char16_t* phrase : {u"", u" ,.!", u"\U0001F600"}) {
            EXPECT_THAT(find(phrase, u"some words", "en", threshold).startWords, testing::IsEmpty());
            EXPECT_THAT(find(phrase, u"", "en", threshold).startWords, testing::IsEmpty());
        }
    }
    EXPECT_THAT(find(u"some words", u" ... ", "en", 0.0F).startWords, ElementsAre(0));
    EXPECT_THAT(find(u"some words", u" ... ", "en", 0.0F).scores, ElementsAre(0.0F));
    EXPECT_THAT(find(u"some words", u" ... ", "en", 0.01F).startWords, testing::IsEmpty());
    std::vector<int> startWords;
    std::vector<float> scores;
    EXPECT_NO_THROW(findBestStartingWords(nullptr, u"!", u"?", "en", 0.5F, startWords, scores));
    EXPECT_THROW(findBestStartingWords(nullptr, u"!", u"a", "en", 0.5F, startWords, scores),
                 std::runtime_error);
}

TEST_F(WordMatch, ResultsAreAppendedAndOverlapWithWhatIsThere) {
    std::vector<int> startWords = {-5};
    std::vector<float> scores = {0.7F};
    findBestStartingWords(mTransliterator.get(), u"b", u"a b", "en", 0.5F, startWords, scores);
    EXPECT_THAT(startWords, ElementsAre(-5, 1));
}

TEST_F(WordMatch, RandomWords) {
    const std::vector<std::u16string> words = {u"a",
                                               u"ab",
                                               u"Ba",
                                               u"abba",
                                               u"can't",
                                               u"_",
                                               u"ÆON",
                                               u"3.14",
                                               u"été",
                                               u"ΟΔΟΣ",
                                               u"привет",
                                               u"日本",
                                               u"สวัสดี",
                                               u"مرحبا",
                                               u"abcdefghijklmnop",
                                               u"\U0001D538\U0001D539",
                                               u"-",
                                               u"…",
                                               u"ß"};
    RandomText random(7);
    const auto sentence = [&](std::size_t count) {
        std::u16string text;
        for (std::size_t i = 0; i < count; ++i)
            text += words[random.below(random.chance(60) ? 4 : words.size())] + u' ';
        return unicode(text);
    };
    const char* languages[] = {"en", "ja", "ar", "th", "el", "fi", "", "no such language"};
    for (int i = 0; i < 1500 && !HasFailure(); ++i) {
        expectPlain(sentence(random.below(6)), sentence(random.below(14)), languages[random.below(8)]);
    }
}

TEST_F(WordMatch, PiecesOfNoisyProse) {
    RandomText random(8);
    const std::u16string text = random.noisy(kProse, 8).substr(0, 500);
    for (const std::size_t length : {5U, 30U, 64U, 65U, 128U, 129U, 200U, 290U}) { // one to five blocks of 64
        const std::size_t start = random.below(200);
        expectPlain(unicode(std::u16string(kProse.substr(start, length))), unicode(text), "en",
                    {0.0F, 0.5F, 0.9F});
    }
}

TEST(EditDistanceTest, AgreesWithTheTable) {
    RandomText random(9);
    for (int i = 0; i < 3000; ++i) {
        const auto alphabet = std::u16string_view(u"abc\u4E00\u4E01\xD83D").substr(0, 1 + random.below(6));
        const std::u16string phrase = random.of(alphabet, random.below(random.chance(10) ? 300 : 80));
        const std::u16string text =
            random.chance(50) ? random.noisy(phrase, 20) : random.of(alphabet, random.below(90));
        const std::size_t plain = plainEditDistance(unicode(text), unicode(phrase));
        const EditDistance distance(phrase);
        const auto encoded = distance.encode(text);
        ASSERT_EQ(distance.to(encoded, plain), plain);
        ASSERT_EQ(distance.to(encoded, 1000), plain);
        if (plain == 0) continue;
        ASSERT_GT(distance.to(encoded, plain - 1), plain - 1);
    }
}

TEST(EditDistanceTest, PiecesAreNeverFartherThanTheNearest) {
    RandomText random(10);
    for (int i = 0; i < 60; ++i) {
        const std::u16string phrase = random.of(u"ab", random.below(i % 10 == 0 ? 140 : 12));
        const std::u16string text = random.of(u"ab", random.below(20));
        const EditDistance distance(phrase);
        const auto nearest = distance.toPiecesEndingAt(distance.encode(text));
        ASSERT_EQ(nearest.size(), text.size() + 1);
        for (std::size_t end = 0; end <= text.size(); ++end) {
            std::size_t plain = phrase.size();
            for (std::size_t start = 0; start < end; ++start) {
                plain = std::min(
                    plain, plainEditDistance(unicode(text.substr(start, end - start)), unicode(phrase)));
            }
            ASSERT_EQ(nearest[end], plain);
        }
    }
}

TEST(Words, SpansCutTheWordsOut) {
    const auto words = [](const icu::UnicodeString& text, const std::string& language) {
        std::vector<icu::UnicodeString> result;
        for (const WordSpan span : findWords(text, language))
            result.emplace_back(text, span.start, span.end - span.start);
        return result;
    };
    EXPECT_THAT(words(u"filthy rich people, oh can't ", "en"),
                ElementsAre(u"filthy", u"rich", u"people", u"oh", u"can't"));
    EXPECT_THAT(words(u"クリスマスツリーのイルミネーションとともだち", "ja"), testing::SizeIs(5));
    EXPECT_THAT(words(u"カリフォルニアのハンバーガーがきれい", "ja"), testing::SizeIs(5));
    EXPECT_THAT(words(u"", "en"), testing::IsEmpty());
    // Finnish keeps a colon inside a word. More languages than iterators are kept, so some are made anew.
    for (const char* language : {"fi", "en", "de", "fr", "es", "it", "ru", "ar", "ja", "th", "fi", "en"}) {
        EXPECT_EQ(words(u"EU:n maa", language).size(), std::string(language) == "fi" ? 2U : 3U) << language;
    }
}

} // namespace
} // namespace kestrel_test
