#include "engine/Similarity.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>

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

TEST(Bm25, IsTheFormula) {
    std::mt19937 random(3);
    std::uniform_int_distribution<std::uint32_t> any(1, 1000);
    for (int round = 0; round < 1000; ++round) {
        const std::uint32_t documents = any(random) + 1000;
        const std::uint32_t documentFrequency = any(random);
        const std::uint32_t terms = documents * any(random);
        const std::uint32_t frequency = any(random) % 20 + 1;
        const std::uint32_t length = decodeLength(encodeLength(any(random)));
        const double idf = std::log(1 + (documents - documentFrequency + 0.5) / (documentFrequency + 0.5));
        const double average = static_cast<double>(terms) / documents;
        const double expected = 2.2 * idf * frequency / (frequency + 1.2 * (0.25 + 0.75 * length / average));

        const Bm25 similarity({documents, terms});
        const float score = similarity.score(similarity.weight(documentFrequency, 1.0F),
                                             static_cast<float>(frequency), encodeLength(length));
        ASSERT_NEAR(static_cast<double>(score), expected, expected * 1e-5);
    }
}

/// Scores that Lucene gives: a term in one of two documents with the average length, and in both.
TEST(Bm25, GivesKnownScores) {
    const Bm25 similarity({2, 8});
    EXPECT_FLOAT_EQ(similarity.score(similarity.weight(1, 1.0F), 1, encodeLength(4)), 0.6931472F);
    EXPECT_FLOAT_EQ(similarity.score(similarity.weight(2, 1.0F), 1, encodeLength(4)), 0.18232156F);
}
