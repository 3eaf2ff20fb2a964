#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"
#include "tests/store/ScriptedStore.h"

#include <sstream>

namespace kestrel_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

MATCHER_P4(IsItem, lineNumber, wordIndex, score, startMs, "") {
    *result_listener << arg.lineNumber << ", " << arg.wordIndex << ", " << arg.score << ", " << arg.startMs;
    return arg.lineNumber == lineNumber && arg.wordIndex == wordIndex &&
           std::abs(arg.score - score) < 0.00005F && arg.startMs == startMs;
}
auto isNotFound(int startMs = 0) {
    return IsItem(0, 0, 0.0F, startMs);
}

/// Numbers the lines from 0, and takes English for their language.
KsNNTextLines linesOf(const std::vector<std::string>& texts) {
    KsNNTextLines lines;
    for (const std::string& text : texts)
        lines.addLineUTF8(text.c_str(), static_cast<int>(lines.size()), "en");
    return lines;
}

/// The words of each segment begin 100 ms apart, those of the next one second later.
KsNNDB_STTClipEntry entryOf(const std::vector<std::pair<std::string, int>>& segmentsAndWords) {
    KsNNDB_STTClipEntry entry;
    for (const auto& [text, words] : segmentsAndWords) {
        KsNNDBEntrySeg& segment = entry.segments.emplace_back();
        segment.transcript = text;
        segment.language = "en";
        for (int i = 0; i < words; ++i) {
            const int start = 1000 * static_cast<int>(entry.segments.size()) + 100 * i;
            segment.wordStartsMS.push_back(start);
            segment.wordEndsMS.push_back(start + 90);
        }
    }
    return entry;
}

class Align : public ScriptedStore {
protected:
    KsNNAlignment align(const KsNNTextLines& script, const KsNNTextLines& transcript) {
        KsNNAlignment alignment = {{7, 7, 1.0F, 7}}; // is emptied
        EXPECT_EQ(mStore->Align(script, transcript, alignment, false), KsNN_Success);
        return alignment;
    }
    void expectReport(const std::string& message) {
        EXPECT_THAT(mStore->GetErrorStr(), EndsWith(", " + message + "\n"));
    }

    KsNNAlignment mAlignment;
};

TEST(TextLines, KeepWhatWasAdded) {
    KsNNTextLines lines;
    lines.addLineUTF8("some text", 1, "en");
    lines.addLineUTF8("\xFF", -3, "no language");
    int number = 0;
    const char* language = nullptr;
    EXPECT_STREQ(lines.getLineUTF8(1, number, &language), "\xFF");
    EXPECT_EQ(number, -3);
    EXPECT_STREQ(language, "no language");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THROW(lines.getLineUTF8(2, number, &language), std::out_of_range);
}

TEST_F(Align, DebugShowsPositionsAndExcerpts) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(mStore->Align(linesOf({"to"}), linesOf({"to x"}), mAlignment, true), KsNN_Success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "0't' --> 0't'\n1'o' --> 1'o'\nLine: 1, Score: 1, t -> t\n");
}

TEST_F(Align, LinesBeginAtWordsOfTranscriptLines) {
    const KsNNTextLines transcript = linesOf({"So, are we rolling? Good.", "The ferry left an hour late and",
                                              "nobody on the upper deck seemed to mind."});
    const KsNNAlignment alignment = align(
        linesOf({"The ferry left an hour late,", "and nobody on the upper deck seemed to mind.", "Good."}),
        transcript);
    EXPECT_THAT(alignment, ElementsAre(IsItem(1, 0, 1.0F, 0), IsItem(1, 6, 1.0F, 0), isNotFound()));
}

TEST_F(Align, LineNumbersAndLanguagesAreTheTranscripts) {
    KsNNTextLines transcript;
    transcript.addLineUTF8("カリフォルニアのハンバーガーがきれい", 40, "ja");
    transcript.addLineUTF8("クリスマスツリーのイルミネーションとともだち", 40, "ja");
    EXPECT_THAT(align(linesOf({"クリスマスツリーのイルミネーションとともだち", "など"}), transcript),
                ElementsAre(IsItem(40, 0, 1.0F, 0), isNotFound()));
}

TEST_F(Align, WhatCannotBePlaced) {
    const std::pair<const char*, const char*> cases[] = {
        {"some text", "$ €"},                 // no words
        {"$ five dollars", "$ five dollars"}, // begins with what is no word
        {"a", "a"},                           // the last unit is left out
        {"xyz uvw", "$ nothing alike"},
    };
    for (const auto& [script, transcript] : cases)
        EXPECT_THAT(align(linesOf({script}), linesOf({transcript})), ElementsAre(isNotFound())) << script;
    EXPECT_THAT(align(linesOf({"some text", "more"}), linesOf({})), ElementsAre(isNotFound(), isNotFound()));
    EXPECT_THAT(align(linesOf({}), linesOf({"text"})), IsEmpty());
    EXPECT_THAT(align(linesOf({" ", "...", "some text"}), linesOf({"some text"})), SizeIs(1))
        << "empty lines";
    // Before the first word of the transcript nothing is read.
    EXPECT_THAT(align(linesOf({"ab five dollars xx"}), linesOf({"€+ five dollars xx"})), SizeIs(1));
}

TEST_F(Align, LongLineThatTheTranscriptCutsShort) {
    const std::string words = "one two three four five six seven eight nine ten ";
    std::string line;
    for (int i = 0; i < 50; ++i)
        line += words;
    const KsNNAlignment alignment = align(linesOf({line, "the end of it"}), linesOf({line.substr(0, 1500)}));
    EXPECT_EQ(alignment.size(), 2U);
    EXPECT_THAT(align(linesOf({line}), linesOf({line})), ElementsAre(IsItem(0, 0, 1.0F, 0)));
}

TEST_F(Align, ClipGivesTimes) {
    const KsNNDB_STTClipEntry entry = entryOf({{"Are we rolling?", 3}, {"The ferry left an hour late", 6}});
    ASSERT_EQ(
        mStore->Align(linesOf({"ferry left an hour", "quite another matter"}), entry, mAlignment, false),
        KsNN_Success);
    EXPECT_THAT(mAlignment, ElementsAre(IsItem(1, 1, 1.0F, 2100), isNotFound(1000)));
}

TEST_F(Align, ClipWithFewerTimesThanWords) {
    const KsNNDB_STTClipEntry entry = entryOf({{"The ferry left an hour late", 1}});
    ASSERT_EQ(mStore->Align(linesOf({"ferry left an hour"}), entry, mAlignment, false), KsNN_Success);
    EXPECT_THAT(mAlignment, ElementsAre(IsItem(0, 1, 1.0F, 0)));
    ASSERT_EQ(mStore->Align(linesOf({"ferry"}), KsNNDB_STTClipEntry(), mAlignment, false), KsNN_Success);
    EXPECT_THAT(mAlignment, ElementsAre(isNotFound()));
}

TEST_F(Align, ClipWantsEveryLineToHaveText) {
    const KsNNDB_STTClipEntry entry = entryOf({{"some text here", 3}});
    EXPECT_EQ(mStore->Align(linesOf({"some text", "  "}), entry, mAlignment, false), KsNN_Error);
    expectReport("KsNNDatabase::Align error: ");
    EXPECT_THAT(mAlignment, SizeIs(1));
}

/// An index with one clip, whose count and contents may be replaced.
class AlignStored : public Align {
protected:
    AlignStored() {
        mServer.otherwise([this](const RecordedRequest& request) {
            if (testing::Matches(EndsWith("/_count"))(request.target)) return mCount;
            return testing::Matches(EndsWith("/_search"))(request.target) ? mContents : ok();
        });
    }

    Reply mCount = count(0);
    Reply mContents = hits(R"({"_source": {"segment": 1, "mediaGuid": "m", "language": "en", "speakerID": "S",
        "transcript": "zero one two three four five", "projectGuidList": ["p"],
        "wordStartsMS": [0, 1000, 2000, 3000, 4000, 5000], "wordEndsMS": [900, 1900, 2900, 3900, 4900, 5900]}})");
};

TEST_F(AlignStored, WholeClip) {
    ASSERT_EQ(mStore->Align(linesOf({"two three four five"}), "m", "p", mAlignment, false), KsNN_Success)
        << mStore->GetErrorStr();
    EXPECT_THAT(mAlignment, ElementsAre(IsItem(0, 2, 1.0F, 2000)));
}

TEST_F(AlignStored, RangeCountsFromItsStart) {
    ASSERT_EQ(mStore->AlignRange(linesOf({"two three four"}), "m", "p", 1000, 5000, mAlignment, false),
              KsNN_Success)
        << mStore->GetErrorStr();
    EXPECT_THAT(mAlignment, ElementsAre(IsItem(0, 1, 1.0F, 1000)));
}

TEST_F(AlignStored, RangeThatEndsBeforeItsStartReadsNoTranscript) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(mStore->AlignRange(linesOf({"two"}), "m", "p", 2000, 1000, mAlignment, true), KsNN_Error);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_THAT(printed, HasSubstr(", KsNNDatabase::GetDBContentsRange: endMS < startMS\n"));
    EXPECT_THAT(printed, HasSubstr(", KsNNDatabase::Align error: \n"));
    expectReport("KsNNDatabase::Align error: ");
    EXPECT_THAT(mServer.conversation(), Not(Contains(HasSubstr("_search"))));
}

TEST_F(AlignStored, FailuresOfTheStoreFailTheAlignment) {
    const KsNNTextLines script = linesOf({"two"});
    // What an earlier alignment left must not pass for this one's.
    const auto expectFailure = [&] {
        mAlignment.emplace_back(1, 2, 0.5F, 3);
        EXPECT_EQ(mStore->Align(script, "m", "p", mAlignment, false), KsNN_Error);
        expectReport("KsNNDatabase::Align error: ");
        EXPECT_TRUE(mAlignment.empty());
        mAlignment.emplace_back(1, 2, 0.5F, 3);
        EXPECT_EQ(mStore->AlignRange(script, "m", "p", 0, 1000, mAlignment, false), KsNN_Error);
        expectReport("KsNNDatabase::Align error: ");
        EXPECT_TRUE(mAlignment.empty());
    };
    mContents = Reply::json(500, "{}");
    expectFailure();
    EXPECT_THAT(mServer.conversation(), Contains(HasSubstr("_search")));
    mServer.reset();
    mCount = Reply::json(500, "{}");
    expectFailure();
    EXPECT_THAT(mServer.conversation(), Not(Contains(HasSubstr("_search"))));
}

TEST_F(Align, SelfTestPasses) {
    EXPECT_EQ(mStore->testInternals("", ""), KsNN_Success) << mStore->GetErrorStr();
}

} // namespace
} // namespace kestrel_test
