// How passages become subtitles.

#include "apps/kestrel/forms/Cues.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <sstream>

namespace kestrel {
namespace {

using testing::ElementsAre;

KsNNDBEntrySeg segment(int number, const std::string& text, std::int32_t startMs, std::int32_t wordMs) {
    KsNNDBEntrySeg seg;
    seg.segment = number;
    seg.transcript = text;
    seg.language = "en";
    seg.speakerID = "1";
    std::istringstream words(text);
    for (std::string word; words >> word; startMs += wordMs) {
        seg.wordStartsMS.push_back(startMs);
        seg.wordEndsMS.push_back(startMs + wordMs);
    }
    return seg;
}

std::vector<Passage> passages(std::vector<KsNNDBEntrySeg> segments) {
    KsNNDB_STTClipEntry entry;
    entry.segments = std::move(segments);
    return passagesOf(entry, [](const KsNNDBEntrySeg& seg) { return seg.speakerID; });
}

std::vector<std::string> texts(const Subtitles& subtitles) {
    std::vector<std::string> result;
    for (const Cue& cue : subtitles.cues) {
        std::string text;
        for (const std::string& line : cue.lines)
            text += (text.empty() ? "" : "|") + line;
        result.push_back(text);
    }
    return result;
}

TEST(Cues, AreBrokenAtSentencesAndClauses) {
    const auto spoken =
        passages({segment(0,
                          "When the rain had stopped at last, we walked down to the river. The "
                          "old bridge was gone, because the flood had taken it at night.",
                          0, 300)});
    EXPECT_THAT(texts(subtitlesOf(spoken, {}, SpeakerNames::InText)),
                ElementsAre("When the rain had stopped at last,|we walked down to the river.",
                            "The old bridge was gone,|because the flood had taken it at night."));
    SubtitleRules narrow;
    narrow.lines = 1;
    narrow.lineLength = 30;
    for (const std::string& text : texts(subtitlesOf(spoken, narrow, SpeakerNames::InText)))
        EXPECT_FALSE(text.ends_with(" the") || text.ends_with(" taken it at")) << text;
}

TEST(Cues, NameTheSpeakerWhereItChanges) {
    std::vector<KsNNDBEntrySeg> segments = {segment(0, "Are you there?", 0, 300),
                                            segment(1, "Answer me.", 3000, 300),
                                            segment(2, "I am.", 6000, 300)};
    segments[2].speakerID = "2";
    SubtitleRules rules;
    rules.speakers = true;
    const auto spoken = passages(segments);
    EXPECT_THAT(texts(subtitlesOf(spoken, rules, SpeakerNames::InText)),
                ElementsAre("1: Are you there?", "Answer me.", "2: I am."));
    EXPECT_EQ(subtitlesOf(spoken, rules, SpeakerNames::Apart).cues.at(2).speaker, "2");
}

TEST(Cues, TakeTheTimeThatReadingNeedsFromPauses) {
    // Ten words a second, and then silence: the subtitle stays into it.
    const Subtitles alone =
        subtitlesOf(passages({segment(0, "many very quick words are said here", 1000, 100),
                              segment(1, "Then nothing.", 9000, 300)}),
                    {}, SpeakerNames::InText);
    EXPECT_EQ(alone.tooFast, 0U);
    EXPECT_EQ(alone.cues.at(0).startMs, 1000);
    EXPECT_EQ(alone.cues.at(0).endMs, 1000 + 35 * 50);
    // No pause at all: it is said, not hidden.
    std::string rush;
    for (int i = 0; i < 200; ++i)
        rush += "unspeakable ";
    EXPECT_GT(subtitlesOf(passages({segment(0, rush, 0, 50)}), {}, SpeakerNames::InText).tooFast, 0U);
}

/// Transcripts such as no engine should make: voices across each other, words backwards, at once, endless.
std::vector<KsNNDBEntrySeg> wildTranscript(std::mt19937& random) {
    const auto pick = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    const std::string alphabet[] = {"a", "é",    "日", "ไ", "-", ".", ",", "👩‍👩‍👧",
                                    "م", "</b>", "&"};
    std::vector<KsNNDBEntrySeg> segments;
    for (int i = 0; i < 1 + pick(12); ++i) {
        KsNNDBEntrySeg seg = segment(i, "", 0, 0);
        seg.speakerID = std::to_string(pick(3));
        for (int word = 0; word < pick(40); ++word) {
            seg.transcript += word == 0 ? "" : " ";
            for (int length = pick(8) == 0 ? pick(120) : 1 + pick(9); length >= 0; --length)
                seg.transcript += alphabet[pick(11)];
            seg.wordStartsMS.push_back(pick(60'000) - 1000);
            seg.wordEndsMS.push_back(seg.wordStartsMS.back() + pick(9000) - 500);
        }
        if (pick(10) == 0) seg.wordEndsMS.clear();
        segments.push_back(std::move(seg));
    }
    return segments;
}

std::size_t visible(const std::string& text) {
    return text.size() - static_cast<std::size_t>(std::count(text.begin(), text.end(), ' '));
}

TEST(Cues, KeepTheirRulesWhateverTheTranscript) {
    ASSERT_EQ(columnsOf("é日e\u0301"), 4);
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        SubtitleRules rules;
        rules.lineLength = 8 + static_cast<int>(random() % 40);
        rules.lines = 1 + static_cast<int>(random() % 3);
        rules.shortestGapMs = static_cast<std::int64_t>(random() % 200);
        rules.speakers = random() % 2 == 0;
        std::int64_t free = 0;
        const auto spoken = passages(wildTranscript(random));
        std::size_t said = 0;
        for (const Passage& passage : spoken) {
            for (const TimedWord& word : passage.words)
                said += visible(word.text);
        }
        for (const Cue& cue : subtitlesOf(spoken, rules, SpeakerNames::Apart).cues) {
            ASSERT_GE(cue.startMs, free) << "round " << round;
            ASSERT_GT(cue.endMs, cue.startMs);
            free = cue.endMs + rules.shortestGapMs;
            ASSERT_GE(cue.lines.size(), 1U);
            ASSERT_LE(cue.lines.size(), static_cast<std::size_t>(rules.lines));
            for (const std::string& line : cue.lines) {
                ASSERT_FALSE(line.empty());
                ASSERT_LE(columnsOf(line), rules.lineLength) << line;
                said -= visible(line);
            }
        }
        EXPECT_EQ(said, 0U) << "nothing that was said may be lost, round " << round;
    }
}

} // namespace
} // namespace kestrel
