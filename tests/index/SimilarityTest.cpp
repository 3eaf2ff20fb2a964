#include "engine/Similarity.h"

#include <gmock/gmock.h>

using kestrel::index::Bm25;
using kestrel::index::decodeLength;
using kestrel::index::encodeLength;

TEST(Lengths, AreExactWhileSmallAndLossyAbove) {
    for (std::uint32_t length = 0; length <= 40; ++length)
        EXPECT_EQ(decodeLength(encodeLength(length)), length);
    EXPECT_EQ(decodeLength(encodeLength(41)), 40U);
    EXPECT_EQ(decodeLength(encodeLength(100)), 96U);
    EXPECT_EQ(decodeLength(encodeLength(1000)), 984U);
    std::uint8_t last = 0;
    for (std::uint32_t length = 0; length < 1'000'000; ++length) {
        const std::uint8_t code = encodeLength(length);
        ASSERT_GE(code, last);
        ASSERT_LE(decodeLength(code), length);
        ASSERT_GE(decodeLength(code) + length / 8, length);
        last = code;
    }
}

/// Scores that Lucene gives: a term in one of two documents with the average length, and in both.
TEST(Bm25, GivesKnownScores) {
    const Bm25 similarity({2, 8});
    EXPECT_FLOAT_EQ(similarity.score(similarity.weight(1, 1.0F), 1, encodeLength(4)), 0.6931472F);
    EXPECT_FLOAT_EQ(similarity.score(similarity.weight(2, 1.0F), 1, encodeLength(4)), 0.18232156F);
}
