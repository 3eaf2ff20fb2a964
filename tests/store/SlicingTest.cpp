#include "tests/store/ScriptedStore.h"

#include <limits>

namespace kestrel_test {
namespace {

using testing::ElementsAre;

KsNNDBEntrySeg segment(int index, const std::string& text, std::vector<int> starts, std::vector<int> ends) {
    KsNNDBEntrySeg seg;
    seg.segment = index;
    seg.mediaGuid = "m";
    seg.projectGuid = "p";
    seg.language = "en";
    seg.transcript = text;
    seg.wordStartsMS.assign(starts.begin(), starts.end());
    seg.wordEndsMS.assign(ends.begin(), ends.end());
    seg.wordConfidences.assign(starts.begin(), starts.end());
    return seg;
}

/// Words of 100 ms from 0 on, four in each of three segments.
KsNNDB_STTClipEntry clip() {
    KsNNDB_STTClipEntry entry;
    entry.segments = {segment(0, "Ein, zwei drei; vier.", {0, 100, 200, 300}, {100, 200, 300, 400}),
                      segment(1, "Öl über alles — 😀 ja", {400, 500, 600, 700}, {500, 600, 700, 800}),
                      segment(2, "one two three four", {800, 900, 1000, 1100}, {900, 1000, 1100, 1200})};
    return entry;
}

struct Cut {
    int startMS;
    int endMS;
    std::vector<std::string> texts;
    std::vector<int> starts; ///< Of all words that remain.
};

TEST(Slicing, KeepsWordsThatLieMostlyInside) {
    const Cut cuts[] = {
        {0,
         1200,
         {"Ein, zwei drei; vier.", "Öl über alles — 😀 ja", "one two three four"},
         {0, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 1100}},
        {100, 300, {"zwei drei"}, {0, 100}},
        {150, 250, {"zwei drei"}, {0, 50}},
        {151, 249, {}, {}},
        {300, 500, {"vier.", "Öl"}, {0, 100}},
        {520, 1010, {"über alles — 😀 ja", "one two"}, {0, 80, 180, 280, 380}},
        {1100, 5000, {"four"}, {0}},
    };
    for (const Cut& cut : cuts) {
        KsNNDB_STTClipEntry entry = clip();
        ASSERT_EQ(KsNNDatabase::sliceEntries(cut.startMS, cut.endMS, entry), KsNN_Success);
        std::vector<std::string> texts;
        std::vector<int> starts;
        for (const KsNNDBEntrySeg& seg : entry.segments) {
            if (!seg.transcript.empty()) texts.push_back(seg.transcript);
            starts.insert(starts.end(), seg.wordStartsMS.begin(), seg.wordStartsMS.end());
            EXPECT_EQ(seg.wordStartsMS.size(), seg.wordEndsMS.size());
            ASSERT_EQ(seg.wordStartsMS.size(), seg.wordConfidences.size());
            // They are the words' original starts; half of a word may lie before the range.
            for (std::size_t w = 0; w < seg.wordStartsMS.size(); ++w)
                EXPECT_NEAR(seg.wordConfidences[w] - cut.startMS, seg.wordStartsMS[w], 50);
        }
        EXPECT_EQ(texts, cut.texts) << cut.startMS;
        EXPECT_EQ(starts, cut.starts) << cut.startMS;
    }
}

TEST(Slicing, HalfAWordCountsAsInside) {
    KsNNDB_STTClipEntry entry;
    entry.segments = {segment(4, "word", {900}, {1100})};
    KsNNDatabase::sliceEntries(1000, 5000, entry);
    EXPECT_THAT(entry.segments.at(0).wordStartsMS, ElementsAre(0));
    EXPECT_THAT(entry.segments.at(0).wordEndsMS, ElementsAre(100));
    EXPECT_EQ(entry.segments.at(0).segment, 4);

    entry.segments = {segment(4, "word", {900}, {1100})};
    KsNNDatabase::sliceEntries(1001, 5000, entry);
    ASSERT_EQ(entry.segments.size(), 1U);
    const KsNNDBEntrySeg& rest = entry.segments[0];
    EXPECT_EQ(rest.segment, 0);
    EXPECT_EQ(rest.mediaGuid + rest.projectGuid + rest.transcript + rest.language, "mpUnk");
    EXPECT_TRUE(rest.wordStartsMS.empty());
}

TEST(Slicing, SurvivesOddClips) {
    KsNNDB_STTClipEntry entry;
    EXPECT_EQ(KsNNDatabase::sliceEntries(0, 10, entry), KsNN_Success);
    EXPECT_TRUE(entry.segments.empty());
    // Fewer words than times: the text stays whole.
    entry.segments = {segment(0, "one", {0, 10, 20}, {10, 20, 30})};
    KsNNDatabase::sliceEntries(10, 20, entry);
    EXPECT_EQ(entry.segments[0].transcript, "one");
    EXPECT_EQ(entry.segments[0].wordStartsMS.size(), 3U);
    // Times and ranges at the ends of what an int holds, and text that is not UTF-8.
    const int low = std::numeric_limits<int>::min();
    const int high = std::numeric_limits<int>::max();
    entry.segments = {segment(0, "\xff \xfe two", {low, high}, {high, low})};
    EXPECT_EQ(KsNNDatabase::sliceEntries(low, high, entry), KsNN_Success);
    EXPECT_EQ(KsNNDatabase::sliceEntries(high, low, entry), KsNN_Success);
}

TEST(Appending, ShiftsTheCopiesOnly) {
    KsNNDB_STTClipEntry target = clip();
    const KsNNDB_STTClipEntry source = clip();
    EXPECT_EQ(KsNNDatabase::appendEntry(source, 5000, target), KsNN_Success);
    ASSERT_EQ(target.segments.size(), 6U);
    EXPECT_THAT(target.segments[0].wordStartsMS, ElementsAre(0, 100, 200, 300));
    EXPECT_THAT(target.segments[3].wordStartsMS, ElementsAre(5000, 5100, 5200, 5300));
    EXPECT_THAT(target.segments[3].wordEndsMS, ElementsAre(5100, 5200, 5300, 5400));
    EXPECT_EQ(target.segments[3].segment, 0);
    EXPECT_EQ(KsNNDatabase::appendEntry(target, 1, target), KsNN_Success);
    EXPECT_EQ(target.segments.size(), 12U);
    EXPECT_THAT(target.segments[6].wordStartsMS, ElementsAre(1, 101, 201, 301));
}

} // namespace
} // namespace kestrel_test
