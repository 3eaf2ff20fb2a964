#include "kestrelml/stt/ctc/GreedyDecoder.h"

#include "kestrelml/stt/KsNNSpeechToTextWav2Vec2ONNX.h"

#include <gmock/gmock.h>

namespace {

using namespace kestrelml::stt;
using testing::ElementsAre;

constexpr SpecialTokens kSpecial{0, 1, 2};
const std::map<std::int32_t, std::string> kTokens{{0, "<pad>"}, {1, "<unk>"}, {2, "|"}, {3, "h"},
                                                  {4, "e"},     {5, "l"},     {6, "o"}, {7, "w"}};

struct Decoded {
    std::string text;
    std::vector<int> starts;
    std::vector<int> ends;
};

Decoded decode(const std::vector<std::int32_t>& frames) {
    Decoded decoded;
    decoded.text = translate(condense(frames, kSpecial), kSpecial, kTokens, decoded.starts, decoded.ends);
    return decoded;
}

TEST(GreedyDecoder, PaddingSeparatesEqualTokensAndEndsAWord) {
    const Decoded decoded = decode({3, 3, 0, 4, 5, 5, 0, 5, 6, 2, 0, 7});
    EXPECT_EQ(decoded.text, "hello w");
    EXPECT_THAT(decoded.starts, ElementsAre(0, 220));
    EXPECT_THAT(decoded.ends, ElementsAre(180));
    EXPECT_THAT(decode({7, 0, 0, 0, 2}).ends, ElementsAre(20))
        << "where the silence before the word's end began";
}

TEST(GreedyDecoder, UnknownTokensAndEmptyWordsLeaveNothing) {
    const Decoded decoded = decode({2, 1, 2, 0, 2, 1, 3, 1, 4, 2, 2});
    EXPECT_EQ(decoded.text, "he ");
    EXPECT_THAT(decoded.starts, ElementsAre(120));
    EXPECT_THAT(decoded.ends, ElementsAre(180));
    EXPECT_EQ(decode({}).text, "");
}

TEST(GreedyDecoder, TrimTakesSpacesOnly) {
    using Engine = KsNNSpeechToTextWav2Vec2ONNX;
    EXPECT_EQ(Engine::trim("  a b\t "), "a b\t");
    EXPECT_EQ(Engine::trim("   "), "");
    EXPECT_EQ(Engine::trim(""), "");
}

} // namespace
