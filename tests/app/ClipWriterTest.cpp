#include "apps/kestrel/clips/ClipWriter.h"

#include "apps/kestrel/media/QuietPoint.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

KsNNDBEntrySeg segment(int number, int startMs, const char* text) {
    KsNNDBEntrySeg made;
    made.segment = number;
    made.transcript = text;
    made.wordStartsMS = {startMs};
    made.wordEndsMS = {startMs + 900};
    return made;
}

std::vector<std::string> texts(const KsNNDB_STTClipEntry& entry) {
    std::vector<std::string> all;
    for (const KsNNDBEntrySeg& one : entry.segments) {
        EXPECT_EQ(static_cast<std::size_t>(one.segment), all.size());
        all.push_back(one.transcript);
    }
    return all;
}

TEST(ContinueBehind, TheSameTranscriptGoesOnWhereItStopped) {
    KsNNDB_STTClipEntry stored;
    KsNNDB_STTClipEntry whole;
    stored.segments = {segment(0, 0, "a"), segment(1, 1000, "b")};
    whole.segments = {segment(0, 0, "a"), segment(1, 1000, "b"), segment(2, 2000, "c")};
    continueBehind(stored, whole);
    EXPECT_THAT(texts(whole), testing::ElementsAre("a", "b", "c"));
}

TEST(ContinueBehind, AnotherTranscriptLosesAndRepeatsNothingInTime) {
    KsNNDB_STTClipEntry stored;
    KsNNDB_STTClipEntry whole;
    stored.segments = {segment(0, 0, "a b"), segment(1, 1000, "c")};
    whole.segments = {segment(0, 500, "b c"), segment(1, 1950, "d"), segment(2, 3000, "e")};
    continueBehind(stored, whole);
    EXPECT_THAT(texts(whole), testing::ElementsAre("a b", "c", "d", "e"));
}

TEST(QuietestPoint, LiesInThePause) {
    std::vector<std::int16_t> sound(16'000 * 3, 8000);
    std::fill(sound.begin() + 20'000, sound.begin() + 24'000, std::int16_t{3});
    EXPECT_NEAR(static_cast<double>(quietestPoint(sound)), 22'000, 600);
    EXPECT_EQ(quietestPoint(std::span(sound).first(100)), 100U);
}

} // namespace
} // namespace kestrel
