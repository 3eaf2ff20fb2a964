#include "engine/Analyzer.h"

#include <gmock/gmock.h>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>

#include <memory>
#include <random>

using kestrel::index::analyze;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Terms = std::vector<std::string>;

/// The terms by ICU's own word boundaries, for text without the scripts that it has its own rules for
/// (ideographs, kana, Hangul, scripts without spaces), and without "@" and ":", which its rules treat unlike
/// the annex.
Terms termsByIcu(const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> words(
        icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status));
    words->setText(text);
    Terms terms;
    for (int32_t start = words->first(), end = words->next(); end != icu::BreakIterator::DONE;
         start = end, end = words->next()) {
        icu::UnicodeString term;
        bool hasLetter = false;
        const icu::UnicodeString word(text, start, end - start);
        for (int32_t i = 0; i < word.length(); i = word.moveIndex32(i, 1)) {
            term.append(u_tolower(word.char32At(i)));
            hasLetter |= u_isalnum(word.char32At(i)) != 0;
        }
        std::string utf8;
        if (hasLetter) terms.push_back(term.toUTF8String(utf8));
    }
    return terms;
}

} // namespace

TEST(Analyzer, CutsAndLowersWords) {
    EXPECT_THAT(analyze("The QUICK brown-fox's 3.14 e_mail, (No.1)!"),
                ElementsAre("the", "quick", "brown", "fox's", "3.14", "e_mail", "no", "1"));
    EXPECT_THAT(analyze("Ärger ÉCOLE Ελλάδα МОСКВА"), ElementsAre("ärger", "école", "ελλάδα", "москва"));
    EXPECT_THAT(analyze("can’t can't a:b x@y a.b.c 1,000.5 a,b 12:30"),
                ElementsAre("can’t", "can't", "a:b", "x", "y", "a.b.c", "1,000.5", "a", "b", "12", "30"));
    EXPECT_THAT(analyze(" --- ... _ \n"), IsEmpty());
    EXPECT_THAT(analyze(""), IsEmpty());
}

TEST(Analyzer, FollowsScriptsWithoutSpaces) {
    EXPECT_THAT(analyze("我们去 東京へ"), ElementsAre("我", "们", "去", "東", "京", "へ"));
    EXPECT_THAT(analyze("カタカナ テスト"), ElementsAre("カタカナ", "テスト"));
    EXPECT_THAT(analyze("สวัสดีครับ ไป"), ElementsAre("สวัสดีครับ", "ไป"));
    EXPECT_THAT(analyze("한국어 단어"), ElementsAre("한국어", "단어"));
    EXPECT_THAT(analyze("ok 👍🏽 👨‍👩‍👧 🇩🇪🇫🇷"),
                ElementsAre("ok", "👍🏽", "👨‍👩‍👧", "🇩🇪", "🇫🇷"));
}

TEST(Analyzer, CutsLongWordsAtUtf16Units) {
    const auto lengths = [](const Terms& terms) {
        std::vector<std::size_t> units;
        for (const std::string& term : terms)
            units.push_back(kestrel::index::utf16Length(term));
        return units;
    };
    EXPECT_THAT(lengths(analyze(std::string(600, 'a'))), ElementsAre(255, 255, 90));
    std::string gothic;
    for (int i = 0; i < 200; ++i)
        gothic += "𐌰"; // two units each
    EXPECT_THAT(lengths(analyze(gothic)), ElementsAre(254, 146));
}

TEST(Analyzer, AgreesWithIcuOnRandomText) {
    static constexpr char16_t kAlphabet[] = u"aBz09.,;'_-\"’·/ \n\tÉßжЖאבגَعربी́\u200d\u00ad";
    constexpr int kLetters = static_cast<int>(std::size(kAlphabet)) - 1;
    std::mt19937 random(7);
    std::uniform_int_distribution<int> letter(0, kLetters - 1);
    std::uniform_int_distribution<int> length(0, 24);
    for (int round = 0; round < 20'000; ++round) {
        icu::UnicodeString text;
        for (int i = length(random); i > 0; --i)
            text.append(kAlphabet[letter(random)]);
        std::string utf8;
        text.toUTF8String(utf8);
        ASSERT_EQ(analyze(utf8), termsByIcu(text)) << utf8;
    }
}
