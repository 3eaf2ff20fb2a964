#include "kestrelml/text/PhraseMatcher.h"

#include "kestrelml/text/EditDistance.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"
#include "oracles/Oracles.h"
#include "tests/text/RandomText.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <memory>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;

icu::UnicodeString unicode(const std::u16string& text) {
    return {text.data(), static_cast<int32_t>(text.size())};
}

class PhraseMatcherTest : public testing::Test {
protected:
    PhraseMatcherTest() : mTransliterator(createSearchTransliterator()) {}

    std::vector<PhraseMatch> find(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                                  float threshold, const std::string& language = "en") const {
        return PhraseMatcher(mTransliterator.get(), phrase, language).findIn(text, threshold);
    }
    std::vector<int> firstWords(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                                float threshold) const {
        std::vector<int> words;
        for (const PhraseMatch& match : find(phrase, text, threshold))
            words.push_back(match.firstWord);
        return words;
    }
    /// One matcher is asked for every threshold.
    void expectPlain(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                     const std::string& language) const {
        const PhraseMatcher matcher(mTransliterator.get(), phrase, language);
        for (const float threshold : {-1.0F, 0.0F, 0.01F, 0.3F, 0.5F, 0.6F, 0.75F, 0.9F, 1.0F, 1.5F,
                                      std::numeric_limits<float>::quiet_NaN()}) {
            const auto plain = plainPhraseMatches(*mTransliterator, phrase, text, language, threshold);
            EXPECT_EQ(matcher.findIn(text, threshold), plain) << threshold;
        }
        if (!HasFailure()) return;
        std::string shown;
        ADD_FAILURE() << language << ": " << phrase.toUTF8String(shown) << " in "
                      << text.toUTF8String(shown += " | ");
    }

    std::unique_ptr<icu::Transliterator> mTransliterator;
};

/// Beside those of the store's self test.
TEST_F(PhraseMatcherTest, KnownPhrases) {
    struct Case {
        const char16_t* phrase;
        const char16_t* text;
        float threshold;
        std::vector<std::pair<int, float>> matches;
    };
    const Case cases[] = {
        {u" Rich peeple!", u"filthy rich people, oh rich people ", 0.0F, {{1, 0.9091F}, {4, 0.9091F}}},
        {u"b", u"   ABC   !.?", 0.0F, {{0, 0.3333F}}},
        {u"    def   abc   !.?", u"b", 0.0F, {{0, 0.1429F}}},
        {u"filthy rich people", u" Rich peeple!", 0.0F, {{0, 0.5556F}}},
        {u"Shiny Happy pEoPle!", u"hApحباPy", 0.0F, {{0, 0.2222F}}},
        // Runs that overlap leave the best, and the earlier of equals.
        {u"a b", u"a b a b a b", 1.0F, {{0, 1.0F}, {2, 1.0F}, {4, 1.0F}}},
        {u"one two", u"one twx one twx", 0.5F, {{0, 0.8571F}, {2, 0.8571F}}},
        // The empty text is wholly unlike the phrase.
        {u"some words", u" ... ", 0.0F, {{0, 0.0F}}},
        {u"some words", u" ... ", 0.01F, {}},
    };
    for (const Case& expected : cases) {
        const auto matches = find(expected.phrase, expected.text, expected.threshold);
        ASSERT_EQ(matches.size(), expected.matches.size());
        for (std::size_t i = 0; i < matches.size(); ++i) {
            EXPECT_EQ(matches[i].firstWord, expected.matches[i].first);
            EXPECT_NEAR(matches[i].score, expected.matches[i].second, 0.00005F);
        }
        expectPlain(expected.phrase, expected.text, "en");
    }
}

TEST_F(PhraseMatcherTest, MatchesCutTheWordsOutOfTheText) {
    const icu::UnicodeString text(u"Filthy, RICH “peuple”! Oh…");
    const auto matches = find(u"rich people", text, 0.6F);
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].wordCount, 2);
    EXPECT_EQ(text.tempSubStringBetween(matches[0].start, matches[0].end),
              icu::UnicodeString(u"RICH “peuple"));
    EXPECT_EQ(find(u"oh so filthy rich people", text, 0.1F).at(0).wordCount, 4)
        << "a shorter text as a whole";
}

TEST_F(PhraseMatcherTest, PhraseWithoutWordsMatchesNothing) {
    for (const float threshold : {-1.0F, 0.0F, 0.5F}) {
        for (const char16_t* phrase : {u"", u" ,.!", u"\U0001F600"}) {
            EXPECT_THAT(firstWords(phrase, u"some words", threshold), testing::IsEmpty());
            EXPECT_THAT(firstWords(phrase, u"", threshold), testing::IsEmpty());
        }
    }
}

TEST_F(PhraseMatcherTest, WordsNeedATransliterator) {
    EXPECT_THROW(PhraseMatcher(nullptr, u"a", "en"), std::runtime_error);
}

TEST_F(PhraseMatcherTest, RandomWords) {
    // clang-format off
    const std::u16string_view words[] = {u"a", u"ab", u"Ba", u"abba", u"can't", u"_", u"ÆON", u"3.14", u"été", u"ΟΔΟΣ", u"привет",
                                         u"日本", u"สวัสดี", u"مرحبا", u"abcdefghijklmnop", u"-", u"\U0001D538\U0001D539", u"…", u"ß"};
    // clang-format on
    RandomText random(7);
    const auto sentence = [&](std::size_t count) {
        std::u16string text;
        for (std::size_t i = 0; i < count; ++i)
            (text += words[random.below(random.chance(60) ? 4 : std::size(words))]) += u' ';
        return unicode(text);
    };
    const char* languages[] = {"en", "ja", "ar", "th", "el", "fi", "", "no such language"};
    for (int i = 0; i < 1500 && !HasFailure(); ++i) {
        expectPlain(sentence(random.below(6)), sentence(random.below(14)), languages[random.below(8)]);
    }
}

TEST_F(PhraseMatcherTest, PiecesOfNoisyText) {
    RandomText random(8);
    const std::u16string text = random.of(u"etaonrish  ,.", 500);
    const icu::UnicodeString noisy = unicode(random.noisy(text, 8));
    for (const std::size_t length : {5U, 30U, 64U, 65U, 128U, 129U, 200U, 290U}) // one to five blocks of 64
        expectPlain(unicode(text.substr(random.below(200), length)), noisy, "en");
}

void expectTable(const std::u16string& text, const std::u16string& phrase) {
    const std::size_t plain = plainEditDistance(unicode(text), unicode(phrase));
    const EditDistance distance(phrase);
    const auto encoded = distance.encode(text);
    for (const std::size_t most : {plain, plain + 1, plain + 63, plain * 2 + 5, std::size_t{100000}})
        ASSERT_EQ(distance.to(encoded, most), plain) << most;
    for (std::size_t most = plain; most-- > 0; most /= 2)
        ASSERT_GT(distance.to(encoded, most), most);
}

TEST(EditDistanceTest, AgreesWithTheTableInEveryBand) {
    RandomText random(9);
    for (int i = 0; i < 3000; ++i) {
        const auto alphabet = std::u16string_view(u"abc\u4E00\u4E01\xD83D").substr(0, 1 + random.below(6));
        const std::u16string phrase = random.of(alphabet, random.below(random.chance(10) ? 300 : 80));
        expectTable(random.chance(50) ? random.noisy(phrase, 20) : random.of(alphabet, random.below(90)),
                    phrase);
    }
    for (const std::size_t percent : {0U, 1U, 5U, 20U, 60U}) {
        for (int i = 0; i < 6; ++i) {
            const std::u16string phrase = random.of(u"abcdefgh", 900 + random.below(700));
            std::u16string text = random.noisy(phrase, percent);
            if (i % 3 == 1) text = text.substr(text.size() / 3) + text.substr(0, text.size() / 3);
            if (i % 3 == 2) text = text.substr(random.below(400)) + random.of(u"abc", random.below(300));
            expectTable(text, phrase);
        }
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

class Words : public testing::TestWithParam<const char*> {
protected:
    static void expectPlain(const std::u16string& text) {
        EXPECT_EQ(findWords(unicode(text), GetParam()), plainWords(unicode(text), GetParam()))
            << std::string(text.begin(), text.end());
    }
};

TEST_P(Words, AreThoseOfIcu) {
    for (const char16_t* text : {u"", u"filthy rich people, oh can't ", u"EU:n maa", u"l’été", u"3.14,5 a.b",
                                 u"クリスマスツリーのイルミネーションとともだち", u"สวัสดีครับ hello"})
        expectPlain(text);
    RandomText random(12);
    for (int i = 0; i < 3000 && !HasFailure(); ++i)
        expectPlain(
            random.of(u"abАб12  .,:;'’\"-_$@\u00B7\r\n\u00E9\u0301\u0E01\u05D0\u00AD", random.below(14)));
    if (GetParam() != std::string("en")) return; // once is enough
    // Every unit of the scripts that are split without ICU, in each kind of neighbourhood.
    for (char16_t unit = 0; unit < 0x2100 && !HasFailure(); ++unit) {
        for (const char16_t* around : {u"", u"a", u"1", u" "}) {
            expectPlain(std::u16string(around) + unit);
            expectPlain(std::u16string(around) + unit + around);
            expectPlain(std::u16string(u"a") + unit + u"1" + unit + unit + around + u"'" + unit);
        }
    }
}

// More languages than splitters are kept, so some are made anew. Finnish keeps a colon inside a word.
INSTANTIATE_TEST_SUITE_P(Languages, Words,
                         testing::Values("en", "fi", "sv", "de", "fr", "el", "ru", "he", "ar", "ja", "th",
                                         "en_US_POSIX", "root", "", "no such language"));

} // namespace
} // namespace kestrel_test
