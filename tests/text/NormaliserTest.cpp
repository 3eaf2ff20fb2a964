#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/text/CharacterFold.h"
#include "kestrelml/text/TextNormaliser.h"
#include "oracles/Oracles.h"
#include "tests/text/RandomText.h"

#include <gmock/gmock.h>

#include <iomanip>
#include <memory>
#include <sstream>
#include <thread>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;

std::string inHex(const icu::UnicodeString& text) {
    std::ostringstream out;
    for (int32_t i = 0; i < text.length(); ++i)
        out << std::hex << std::setw(5) << static_cast<unsigned>(text[i]);
    return out.str();
}

class Normaliser : public testing::Test {
protected:
    Normaliser() : mTransliterator(createSearchTransliterator()) {}

    icu::UnicodeString normal(icu::UnicodeString text) const {
        normalizeForSearch(mTransliterator.get(), text);
        return text;
    }
    void expectPlain(const icu::UnicodeString& text) const {
        EXPECT_EQ(inHex(normal(text)), inHex(plainNormalForm(*mTransliterator, text))) << inHex(text);
    }
    void expectPlain(const std::u16string& text) const {
        expectPlain(icu::UnicodeString(text.data(), static_cast<int32_t>(text.size())));
    }

    std::unique_ptr<icu::Transliterator> mTransliterator;
};

TEST_F(Normaliser, NeedsATransliteratorEvenForPlainText) {
    icu::UnicodeString text("abc");
    try {
        normalizeForSearch(nullptr, text);
        FAIL() << "did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Failed to create transform rule");
    }
}

TEST_F(Normaliser, KnownForms) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u" Rich peeple!", u"rich peeple"},
        {u"  why, can't rich  people!", u"why cant rich people"},
        {u"   ABC   !.?", u"abc"},
        {u"", u""},
        {u" - \u3000 ", u""},
        {u"\tTab\u00A0\u3000x\t", u"\ttab x\t"},
        {u"Crème Brûlée", u"creme brulee"},
        {u"Œuvre STRAẞE Ægir Þór Łódź Đà Ðe", u"oeuvre strasse aegir thor lodz da de"},
        {u"Ἀθῆναι ΟΔΟΣ", u"αθηναι οδος"},
        {u"Ёлка Йод", u"елка иод"},
        {u"مَرْحَبًا", u"مرحبا"},
        {u"한국어", u"한국어"},
        {u"$5 + €3 = 8", u"$5 + €3 = 8"},
        {u"\U0001F600 Ok", u"\U0001F600 ok"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(normal(text), icu::UnicodeString(expected)) << inHex(text);
}

TEST_F(Normaliser, EveryCodePointAloneAndBetweenOthers) {
    for (UChar32 c = 0; c <= 0x10FFFF && !HasFailure(); ++c) {
        expectPlain(icu::UnicodeString(c));
        if (c >= 0x3000 && c % 7 != 0) continue; // the neighbours of all would take minutes
        for (const char16_t* before : {u"e", u" ", u"Σ", u"\u1112", u"\u0915\u0301"}) {
            expectPlain((icu::UnicodeString(before) + c) + u"A\u0308 ");
        }
    }
}

TEST_F(Normaliser, RandomText) {
    const std::u16string_view alphabets[] = {
        u"abcXYZ .,-'!?09\t",
        u"aeoAEOß\u00C6\u0153\u0301\u0308\u0327\u00E9\u0130\u01C4 \u00A0\u2009\u3000-_",
        u"ΑαΣσςΟ\u0345\u0313 .'\u00AD",
        u"\u1100\u1161\u11A8\uAC00\uAC01\u302E a",
        u"\u0915\u093C\u0958\u09C7\u09BE\u0BC6\u0BBE\u0DD9\u0DCF\u1B05\u1B35 ",
        u"\xD83D\xDE00\xD835\xDEBA\xDC00 aΣ",
        u"\u0627\u0653\u0622\u064B\u0651\u05D0\u05B7\uFB2E\u200D\u200F ",
    };
    RandomText random(5);
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        for (const std::u16string_view alphabet : alphabets)
            expectPlain(random.of(alphabet, random.below(12)));
        std::u16string units(random.below(8), u' ');
        for (char16_t& unit : units)
            unit = static_cast<char16_t>(random.below(i % 2 == 0 ? 0x600 : 0x10000));
        expectPlain(units);
    }
}

TEST_F(Normaliser, CommonScriptsNeedNoContext) {
    std::u16string folded;
    for (const char16_t* text : {u"Plain English, 1999!", u"Straße Žižkov Œuvre", u"Привет", u"日本語 テスト",
                                 u"ΟΔΟΣ Σίγουρα", u"한국어", u"مرحبا"}) {
        EXPECT_TRUE(appendFolded(text, folded)) << inHex(text);
    }
    const std::u16string before = folded;
    EXPECT_FALSE(appendFolded(u"a\U0001F600", folded));
    EXPECT_EQ(folded, before);
}

TEST_F(Normaliser, OneTransliteratorServesSeveralThreads) {
    const icu::UnicodeString text(u"ΟΔΟΣ \U0001F600 \u0928\u093F"); // goes the slow way
    const icu::UnicodeString expected = plainNormalForm(*mTransliterator, text);
    std::vector<std::thread> threads;
    std::array<int, 4> wrong{};
    for (int& count : wrong) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i)
                count += normal(text) == expected ? 0 : 1;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(wrong, testing::Each(0));
}

TEST_F(Normaliser, TrimTakesSpacesOnly) {
    EXPECT_EQ(trimSpaces(u"   "), icu::UnicodeString());
    EXPECT_EQ(trimSpaces(u""), icu::UnicodeString());
    EXPECT_EQ(trimSpaces(u"  a b  "), icu::UnicodeString(u"a b"));
    EXPECT_EQ(trimSpaces(u"\ta\u00A0"), icu::UnicodeString(u"\ta\u00A0"));
}

} // namespace
} // namespace kestrel_test
