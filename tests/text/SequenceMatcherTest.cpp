#include "kestrelml/text/matching/SequenceMatcher.h"

#include "kestrelml/align/PositionMap.h"

#include <gmock/gmock.h>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;

// test_difflib.py checks the blocks themselves.

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
