#include "kestrelml/text/matching/SequenceMatcher.h"

#include "kestrelml/align/PositionMap.h"
#include "oracles/Oracles.h"
#include "tests/text/RandomText.h"

#include <gmock/gmock.h>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;

/// Compares both searches, each alone and together, with the plain form. Random texts and prose are compared
/// with Python's difflib in test_difflib.py.
void expectPlainBlocks(std::u16string_view a, std::u16string_view b) {
    const auto plain = plainMatchingBlocks(a, b);
    const auto shown = [&] {
        return std::string("a = ").append(a.begin(), a.end()).append("\nb = ").append(b.begin(), b.end());
    };
    EXPECT_EQ(findMatchingBlocks(a, b), plain) << shown();
    EXPECT_EQ(findMatchingBlocks(a, b, 0), plain) << "large ranges only, " << shown();
    EXPECT_EQ(findMatchingBlocks(a, b, 40 * 40), plain) << "both searches, " << shown();
}

std::u16string fibonacciWord(std::size_t length) {
    std::u16string before = u"a";
    std::u16string word = u"ab";
    while (word.size() < length)
        word = std::exchange(before, word).insert(0, word);
    return word.substr(0, length);
}

/// Runs of x, one longer each time, with `mark` between them.
std::u16string risingRuns(std::size_t count, char16_t mark) {
    std::u16string text;
    for (std::size_t length = 1; length <= count; ++length)
        text.append(length, u'x') += mark;
    return text;
}

std::u16string reversed(const std::u16string& text) {
    return {text.rbegin(), text.rend()};
}

TEST(SequenceMatcher, NothingInCommon) {
    EXPECT_THAT(findMatchingBlocks(u"", u""), ElementsAre(MatchingBlock{0, 0, 0}));
    EXPECT_THAT(findMatchingBlocks(u"abc", u""), ElementsAre(MatchingBlock{3, 0, 0}));
    EXPECT_THAT(findMatchingBlocks(u"", u"abc"), ElementsAre(MatchingBlock{0, 3, 0}));
    EXPECT_THAT(findMatchingBlocks(u"abc", u"xyz", 0), ElementsAre(MatchingBlock{3, 3, 0}));
}

TEST(SequenceMatcher, EqualLengthsGoToTheFirstInAThenInB) {
    EXPECT_THAT(findMatchingBlocks(u"ab", u"b-a-a"),
                ElementsAre(MatchingBlock{0, 2, 1}, MatchingBlock{2, 5, 0}));
    expectPlainBlocks(u"ab", u"b-a-a");
}

TEST(SequenceMatcher, SurrogatesMatchUnitByUnit) {
    RandomText random(4);
    // The two share their first halves, so a block may end inside a character.
    const std::u16string smile = u"\U0001F600";
    const std::u16string grin = u"\U0001F601";
    EXPECT_THAT(findMatchingBlocks(smile, grin), ElementsAre(MatchingBlock{0, 0, 1}, MatchingBlock{2, 2, 0}));
    for (int i = 0; i < 300; ++i) {
        expectPlainBlocks(random.of(u"\xD83D\xDE00\xDE01\xFFFF", random.below(80)),
                          random.of(u"\xD83D\xDE00\xDE01\xFFFF", random.below(80)));
        if (HasFailure()) return;
    }
}

TEST(SequenceMatcher, HardInputs) {
    const std::u16string letters(400, u'a');
    expectPlainBlocks(letters, letters);
    expectPlainBlocks(letters, letters.substr(0, 150));
    expectPlainBlocks(letters + u'b', letters + u'c');
    expectPlainBlocks(u'b' + letters, u'c' + letters);
    const std::u16string fibonacci = fibonacciWord(400);
    expectPlainBlocks(fibonacci, fibonacciWord(377).substr(44) + fibonacci.substr(0, 99));
    expectPlainBlocks(fibonacci, reversed(fibonacci));
    const std::u16string rising = risingRuns(26, u'y');
    expectPlainBlocks(rising, risingRuns(26, u'z'));
    expectPlainBlocks(reversed(rising), risingRuns(27, u'y'));
    expectPlainBlocks(letters, risingRuns(20, u'a'));
}

TEST(SequenceMatcher, ManyBlocksDoNotDeepenTheStack) {
    std::u16string a;
    std::u16string b;
    for (int i = 0; i < 60000; ++i) {
        a += u"xy";
        b += u"xz";
    }
    EXPECT_EQ(findMatchingBlocks(a, b).size(), 60001U);
}

TEST(SequenceMatcher, OpcodesAndPositions) {
    using Tag = Opcode::Tag;
    EXPECT_THAT(toOpcodes(findMatchingBlocks(u"some text", u"some other text")),
                ElementsAre(Opcode{Tag::Equal, 0, 5, 0, 5}, Opcode{Tag::Insert, 5, 5, 5, 11},
                            Opcode{Tag::Equal, 5, 9, 11, 15}));
    const auto opcodes = toOpcodes(findMatchingBlocks(u"qabxcd", u"abycdf"));
    EXPECT_THAT(opcodes, ElementsAre(Opcode{Tag::Delete, 0, 1, 0, 0}, Opcode{Tag::Equal, 1, 3, 0, 2},
                                     Opcode{Tag::Replace, 3, 4, 2, 3}, Opcode{Tag::Equal, 4, 6, 3, 5},
                                     Opcode{Tag::Insert, 6, 6, 5, 6}));
    const PositionMap positions(opcodes);
    std::vector<std::int32_t> mapped;
    for (std::int32_t x = -1; x <= 6; ++x)
        mapped.push_back(positions(x));
    EXPECT_THAT(mapped, ElementsAre(-1, 0, 0, 1, 2, 3, 4, -1));
}

TEST(SequenceMatcher, ReplacedTextMayMapBeyondTheOther) {
    const PositionMap positions(toOpcodes(findMatchingBlocks(u"xxxx", u"y")));
    EXPECT_EQ(positions(3), 3);
}

} // namespace
} // namespace kestrel_test
