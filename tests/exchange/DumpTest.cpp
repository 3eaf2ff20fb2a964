// Layouts of transcript dumps, byte for byte.

#include "tests/store/ScriptedStore.h"

#include <Poco/TemporaryFile.h>

#include <fstream>

namespace kestrel_test {
namespace {

KsNNDBEntrySeg segment(int index, const std::string& text, std::vector<std::int32_t> starts,
                       std::vector<std::int32_t> ends) {
    KsNNDBEntrySeg seg;
    seg.segment = index;
    seg.mediaGuid = "m";
    seg.projectGuid = "p";
    seg.transcript = text;
    seg.language = "en";
    seg.speakerID = std::to_string(index + 1);
    seg.wordStartsMS = std::move(starts);
    seg.wordEndsMS = std::move(ends);
    return seg;
}

class Dump : public ScriptedStore {
protected:
    Dump() {
        mEntry.projectName = "P";
        mEntry.model = "small";
        mEntry.clipName = "A001 \"Ä\"";
        mEntry.audioTracks = "1,2";
        mEntry.clientApp = "Editor";
        mEntry.segments = {segment(0, "Hello, World", {0, 500}, {400, 900}),
                           segment(1, "Ça va?", {1000}, {1400})};
    }

    KsNN_ErrorCode dump(int layout, const std::string& project = "", bool debug = false) {
        std::string path = mFile.path();
        return mStore->DumpDBContentsToFile(mEntry, path, static_cast<KsNNFileExportType>(layout), mTimecodes,
                                            debug, project);
    }
    std::string written() const {
        std::ifstream in(mFile.path());
        return {std::istreambuf_iterator<char>(in), {}};
    }

    KsNNDB_STTClipEntry mEntry;
    std::vector<KsNNTC> mTimecodes = {{"01:00:00:00", "01:00:00:22"}, {"01:00:01:00", "01:00:01:10"}};
    Poco::TemporaryFile mFile;
};

const char* const kBlocks = "Speaker 1:\n01:00:00:00 - 01:00:00:22\nHello, World\n\n"
                            "Speaker 2:\n01:00:01:00 - 01:00:01:10\nÇa va?\n\n";

TEST_F(Dump, ReadableScript) {
    ASSERT_EQ(dump(1), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(written(), std::string("Project: P\nClip Name: A001 \"Ä\"\n\n") + kBlocks);
    mEntry.segments.clear();
    mTimecodes.clear();
    ASSERT_EQ(dump(1, "Named"), KsNN_Success);
    EXPECT_EQ(written(), "Project: Named\nClip Name: A001 \"Ä\"\n\n");
}

TEST_F(Dump, SubtitleScript) {
    ASSERT_EQ(dump(2), KsNN_Success);
    EXPECT_EQ(written(), "@ Project: P\n@ Clip Name: A001 \"Ä\"\n\n<begin subtitles>\n\n"
                         "01:00:00:00 01:00:00:22\nHello, World\n\n01:00:01:00 01:00:01:10\nÇa va?\n\n"
                         "<end subtitles>\n\n");
    mEntry.segments.clear();
    mTimecodes.clear();
    ASSERT_EQ(dump(2), KsNN_Success);
    EXPECT_EQ(written(), "@ Project: P\n@ Clip Name: A001 \"Ä\"\n\n<begin subtitles>\n\n<end subtitles>\n\n");
}

TEST_F(Dump, CheckListing) {
    const std::string listing = "[0, m, p, en, speakerID 1]\n\t0-400 hello\n\t500-900 world\n"
                                "[1, m, p, en, speakerID 2]\n"
                                "*** Word Count Mismatch *** wordTot=1 wordTot2= 2 i.wordEndsMS.size()=1\n"
                                "\t1000-1400 ca\n";
    const std::string summary = "[P, small, A001 \"Ä\", 1,2, incomplete, Editor]\n";
    ASSERT_EQ(dump(0), KsNN_Success);
    EXPECT_EQ(written(), summary + kBlocks + listing);

    mEntry.progressComplete = true;
    testing::internal::CaptureStdout();
    ASSERT_EQ(dump(0, "", true), KsNN_Success);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[P, small, A001 \"Ä\", 1,2, complete, Editor]\n[0, m, p, en, speakerID 1]\n\t0-400 hello\n"
              "\t500-900 world\n[1, m, p, en, speakerID 2]\n\t1000-1400 ca\n");
}

TEST_F(Dump, AssignedSpeakersAreNamed) {
    mEntry.segments[0].speakerGuid = "s1";
    mEntry.segments[1].speakerGuid = "";
    mServer.script({ok(), ok(), hits(R"({"_id": "s1", "_source": {"speakerName": "Anna"}})")});
    ASSERT_EQ(dump(1), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_THAT(written(), testing::HasSubstr("\n\nAnna:\n01:00:00:00"));
    EXPECT_THAT(written(), testing::HasSubstr("\n\nSpeaker 2:\n"));

    mServer.script({ok(), ok(), hits("")});
    EXPECT_EQ(dump(1), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), testing::HasSubstr("KsNNDatabase::DumpDBContentsToFile err: "));
    EXPECT_EQ(written(), "Project: P\nClip Name: A001 \"Ä\"\n\n") << "keeps what was written";
}

TEST_F(Dump, FailuresAreReported) {
    std::ofstream(mFile.path()) << "before";
    mTimecodes.pop_back();
    EXPECT_EQ(dump(1), KsNN_Error);
    EXPECT_EQ(written(), "before") << "not touched";
    mTimecodes.push_back({});
    EXPECT_EQ(dump(3), KsNN_Error);
    EXPECT_EQ(written(), "");
    for (std::string path : {"/nonexistent/file", "/dev/full"}) {
        EXPECT_EQ(mStore->DumpDBContentsToFile(mEntry, path, KsNNExportText, mTimecodes, false, ""),
                  KsNN_Error);
        EXPECT_THAT(mStore->GetErrorStr(), testing::HasSubstr("KsNNDatabase::DumpDBContentsToFile err: "));
    }
    EXPECT_THAT(mStore->GetErrorStr(), testing::HasSubstr("No space left on device"));
}

} // namespace
} // namespace kestrel_test
