#include "apps/kestrel/clips/TextReport.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

/// A segment of four words, one in a second.
KsNNDBEntrySeg segment(int startSecond, int confidence, const char* language = "en") {
    KsNNDBEntrySeg made;
    made.language = language;
    for (int word = 0; word < 4; ++word) {
        made.wordStartsMS.push_back(1000 * (startSecond + word));
        made.wordEndsMS.push_back(1000 * (startSecond + word + 1));
        if (confidence >= 0) made.wordConfidences.push_back(confidence);
    }
    return made;
}

std::vector<std::string> warningsOf(std::vector<KsNNDBEntrySeg> segments) {
    KsNNDB_STTClipEntry entry;
    entry.segments = std::move(segments);
    return textWarnings(entry, {});
}

TEST(TextReport, DoubtfulSegmentsInARowAreOnePlace) {
    EXPECT_THAT(
        warningsOf({segment(0, 90), segment(190, 30, "cy"), segment(200, 40, "cy"), segment(210, 60)}),
        testing::ElementsAre("doubtful text: 8 s from 00:03:10 (35 % sure, taken for \"cy\"); the speech "
                             "there is unclear or in another language"));
}

TEST(TextReport, ThreePlacesAreNamedAndTheOthersCounted) {
    std::vector<KsNNDBEntrySeg> segments;
    for (int place = 0; place < 5; ++place) {
        segments.push_back(segment(20 * place, 20));
        segments.push_back(segment(20 * place + 10, 80));
    }
    EXPECT_THAT(warningsOf(segments),
                testing::ElementsAre(testing::AllOf(testing::HasSubstr("4 s from 00:00:40"),
                                                    testing::HasSubstr("and 2 more"),
                                                    testing::Not(testing::HasSubstr("00:01:00")))));
}

TEST(TextReport, WithoutConfidencesNothingIsDoubted) {
    EXPECT_THAT(warningsOf({segment(0, -1), segment(10, -1)}), testing::IsEmpty());
}

} // namespace
} // namespace kestrel
