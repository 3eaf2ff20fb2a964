#include "kestrelml/stt/AnswerChecks.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

namespace {

using namespace kestrelml::stt;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

Answer parse(const std::string& json) {
    return json.empty() ? Answer() : Poco::JSON::Parser().parse(json).extract<Answer>();
}

/// What an answer is read into.
struct Read {
    std::vector<KsNNLanguage> languages;
    KsNNDB_STTClipEntry entry;
    KsNNTranscript transcript;
    float progress = 0.5F;
};

struct Check {
    const char* name;
    KsNN_ErrorCode (*run)(const Answer&, Read&, KsNNBase&, bool debug);
    std::string goodAnswer;
    std::vector<std::string> requiredKeys; ///< Without one of them the check reports `message`.
    std::string message;                   ///< Of an answer that lacks a key.
    std::string refusal;                   ///< Of "success": false with the error "why".
    bool textTrueOnly;                     ///< Whether only the text "true" counts as success.
    std::string printed;                   ///< By the debug flag, for the good answer.
};

const Check kChecks[] = {
    {"SetModelDir",
     [](const Answer& a, Read&, KsNNBase& t, bool debug) { return checkSetModelDir(a, t, debug); },
     R"({"success":true,"modelDir":"/m"})",
     {"success", "modelDir"},
     "KsNNSTT JSON err",
     "KsNNSTT checkSetModelDir error: why",
     true,
     "checkSetModelDir result: true, modelDir /m\n"},
    {"Languages",
     [](const Answer& a, Read& r, KsNNBase& t, bool debug) {
         return checkGetSupportedLanguages(a, r.languages, t, debug);
     },
     R"({"success":true,"languages":{"de":{"language":"German","local":"Deutsch"}}})",
     {"success", "languages"},
     "checkGetSupportedLanguages error: ",
     "checkGetSupportedLanguages error: why",
     true,
     "checkGetSupportedLanguages result: true\n"
     "Code: de Local language: Deutsch Anglicized language: German\n"},
    {"AudioUpload",
     [](const Answer& a, Read&, KsNNBase& t, bool debug) { return checkAudioUpload(a, t, debug); },
     R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":48000,"end_sample":64000})",
     {"success", "mediaGuid", "projectGuid", "start_sample", "end_sample"},
     "KsNNSTT checkAudioUpload error: ",
     "KsNNSTT checkAudioUpload error: ",
     true,
     "checkAudioUpload result: true, mediaGuid m, 48000-64000\n"},
    {"Finalize",
     [](const Answer& a, Read& r, KsNNBase& t, bool debug) {
         return checkFinalizeTranscript(a, r.entry, t, debug);
     },
     R"({"success":true,"total_samples":1,"audioTracks":"A1","mediaGuid":"m","projectGuid":"p",)"
     R"("model":"whisper-base","device":"cpu","transcriptSegments":[]})",
     {"success", "total_samples", "mediaGuid", "projectGuid", "model", "device"},
     "checkFinalizeTranscript error: ",
     "checkFinalizeTranscript error: why",
     false,
     ""},
    {"Transcript",
     [](const Answer& a, Read& r, KsNNBase& t, bool) { return buildTranscriptFromJson(a, r.transcript, t); },
     R"({"success":true,"model":"whisper-base","device":"cpu","segments":[]})",
     {"success"},
     "buildTranscriptFromJson error: ",
     "buildTranscriptFromJson error: why",
     false,
     ""},
    {"Cancel",
     [](const Answer& a, Read&, KsNNBase& t, bool debug) { return checkCancel(a, t, debug); },
     R"({"success":true})",
     {"success"},
     "checkCancel error: ",
     "checkCancel error: why",
     true,
     "checkCancel result: true\n"},
    {"Progress",
     [](const Answer& a, Read& r, KsNNBase& t, bool debug) {
         return checkGetProgress(a, r.progress, t, debug);
     },
     R"({"success":true,"progress":0.25})",
     {"success", "progress"},
     "checkGetProgress error: ",
     "checkGetProgress error: ",
     true,
     "checkGetProgress result: true, progress 0.25\n"},
};

class AnswerChecks : public testing::TestWithParam<Check> {
protected:
    /// The report for the good answer after a change to it; empty when it is still accepted.
    template <typename Change>
    std::string reportAfter(Change change) {
        Answer answer = parse(GetParam().goodAnswer);
        change(*answer);
        return reportOf(answer);
    }

    std::string reportOf(const Answer& answer) {
        KsNNBase target("http://127.0.0.1/");
        Read read;
        const KsNN_ErrorCode result = GetParam().run(answer, read, target, false);
        EXPECT_EQ(result, target.GetErrorStr().empty() ? KsNN_Success : KsNN_Error);
        return target.GetErrorStr();
    }
};

TEST_P(AnswerChecks, AcceptAndPrintTheGoodAnswer) {
    KsNNBase target("http://127.0.0.1/");
    Read read;
    testing::internal::CaptureStdout();
    EXPECT_EQ(GetParam().run(parse(GetParam().goodAnswer), read, target, true), KsNN_Success);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(GetParam().printed));
    EXPECT_EQ(target.GetErrorStr(), "");
}

TEST_P(AnswerChecks, ReportEachMissingKey) {
    for (const std::string& key : GetParam().requiredKeys)
        EXPECT_THAT(reportAfter([&](auto& answer) { answer.remove(key); }),
                    EndsWith(", " + GetParam().message + "\n"))
            << key;
}

TEST_P(AnswerChecks, ReportARefusalAndItsReason) {
    EXPECT_THAT(reportAfter([](auto& answer) { answer.set("success", false).set("error", "why"); }),
                EndsWith(", " + GetParam().refusal + "\n"));
    EXPECT_NE(reportAfter([](auto& answer) { answer.set("success", false); }), "");
}

TEST_P(AnswerChecks, TakeTheTextTrueOrWhateverConvertsToIt) {
    EXPECT_EQ(reportAfter([](auto& answer) { answer.set("success", "true"); }), "");
    for (const char* value : {"True", "1"})
        EXPECT_EQ(reportAfter([&](auto& answer) { answer.set("success", value); }).empty(),
                  !GetParam().textTrueOnly)
            << value;
}

TEST_P(AnswerChecks, ReportTheExceptionOfWhatCannotBeRead) {
    for (const std::string& report :
         {reportOf({}), reportAfter([](auto& answer) { answer.set("success", Poco::Dynamic::Var()); })}) {
        EXPECT_THAT(report, HasSubstr("className = "));
        EXPECT_EQ(report.find("KsNN Error: "), report.rfind("KsNN Error: "))
            << "one block, without a message";
    }
}

INSTANTIATE_TEST_SUITE_P(Every, AnswerChecks, testing::ValuesIn(kChecks),
                         [](const auto& each) { return each.param.name; });

enum Index { Languages = 1, Finalize = 3, Transcript = 4, Progress = 6 };

/// Reads an answer by one of the checks, expecting the given result.
Read readBy(Index check, const std::string& answer, KsNN_ErrorCode expected = KsNN_Success, Read read = {}) {
    KsNNBase target("http://127.0.0.1/");
    EXPECT_EQ(kChecks[check].run(parse(answer), read, target, false), expected) << target.GetErrorStr();
    return read;
}

std::string finalizeAnswer(const std::string& segments) {
    return R"({"success":true,"total_samples":16000,"audioTracks":"A1","mediaGuid":"m","projectGuid":"p",)"
           R"("model":"whisper-base","device":"cpu","transcriptSegments":)" +
           segments + "}";
}

TEST(AnswerReading, LanguagesComeInOrderOfTheirCodesUpToAFaultyOne) {
    const Read read = readBy(Languages,
                             R"({"success":true,"languages":{"zh":{"language":"Chinese"},)"
                             R"("fr":{"language":"French","local":"Français"},)"
                             R"("de":{"language":"German","local":"Deutsch"}}})",
                             KsNN_Error);
    ASSERT_EQ(read.languages.size(), 2U);
    EXPECT_EQ(read.languages[0].code, "de");
    EXPECT_EQ(read.languages[1].code, "fr");
    EXPECT_EQ(read.languages[1].localName, "Français");
    EXPECT_EQ(read.languages[1].anglicizedName, "French");
}

TEST(AnswerReading, SegmentsAreAppendedToTheEntryAndOtherFieldsStay) {
    Read before;
    before.entry.clipName = "clip";
    before.entry.progressComplete = true;
    before.entry.segments.resize(1);
    const Read read =
        readBy(Finalize,
               finalizeAnswer(R"([{"segment":0,"transcript":"two words","language":"en","speakerID":"2",)"
                              R"("wordStartsMS":[10,500],"wordEndsMS":[400,900]},)"
                              R"({"segment":1,"transcript":"","language":"en","speakerID":"1",)"
                              R"("wordStartsMS":[],"wordEndsMS":[]}])"),
               KsNN_Success, before);
    EXPECT_EQ(read.entry.model, "whisper-base");
    EXPECT_EQ(read.entry.audioTracks, "A1");
    EXPECT_EQ(read.entry.clipName, "clip");
    EXPECT_FALSE(read.entry.progressComplete);
    ASSERT_EQ(read.entry.segments.size(), 3U);
    const KsNNDBEntrySeg& segment = read.entry.segments[1];
    EXPECT_EQ(segment.transcript, "two words");
    EXPECT_EQ(segment.mediaGuid, "m");
    EXPECT_EQ(segment.projectGuid, "p");
    EXPECT_EQ(segment.speakerID, "2");
    EXPECT_EQ(segment.speakerGuid, "Unk");
    EXPECT_THAT(segment.wordStartsMS, ElementsAre(10, 500));
    EXPECT_THAT(segment.wordEndsMS, ElementsAre(400, 900));
    EXPECT_THAT(read.entry.segments[2].wordStartsMS, ElementsAre());
}

TEST(AnswerReading, SilenceBecomesOneEmptySegment) {
    const Read read = readBy(Finalize, finalizeAnswer("[]"));
    ASSERT_EQ(read.entry.segments.size(), 1U);
    EXPECT_EQ(read.entry.segments[0].segment, 0);
    EXPECT_EQ(read.entry.segments[0].transcript, "");
    EXPECT_EQ(read.entry.segments[0].language, "Unk");
    EXPECT_EQ(read.entry.segments[0].speakerID, "Unk");
    EXPECT_EQ(read.entry.segments[0].mediaGuid, "m");
}

TEST(AnswerReading, AFaultySegmentFailsAndKeepsThoseBefore) {
    for (
        const char* faulty :
        {R"({"segment":1,"transcript":"b","language":"en","wordStartsMS":[3],"wordEndsMS":[4]})",
         R"({"segment":1,"transcript":"b c","language":"en","speakerID":"1","wordStartsMS":[3,4],"wordEndsMS":[4]})",
         R"({"segment":1,"transcript":"b","language":"en","speakerID":"1"})"}) {
        const std::string segments = R"([{"segment":0,"transcript":"a","language":"en","speakerID":"1",)"
                                     R"("wordStartsMS":[1],"wordEndsMS":[2]},)" +
                                     std::string(faulty) + "]";
        EXPECT_EQ(readBy(Finalize, finalizeAnswer(segments), KsNN_Error).entry.segments.size(), 1U) << faulty;
    }
}

TEST(AnswerReading, ATranscriptSegmentWithoutSpeakerContinuesThePreviousOne) {
    const Read read =
        readBy(Transcript, R"({"success":true,"model":"whisper-base","device":"cpu","segments":[)"
                           R"({"text":"one","language":"en","speakerID":"7",)"
                           R"("words":[{"startMs":5,"endMs":20,"word":"one","probability":0.75}]},)"
                           R"({"text":"two","language":"en","words":[{"startMs":30,"endMs":40,"word":"two",)"
                           R"("probability":1}]}]})");
    ASSERT_EQ(read.transcript.segments.size(), 2U);
    EXPECT_EQ(read.transcript.device, "cpu");
    EXPECT_EQ(read.transcript.segments[0].words.at(0).endMs, 20);
    EXPECT_FLOAT_EQ(read.transcript.segments[0].words.at(0).probability, 0.75F);
    EXPECT_EQ(read.transcript.segments[1].speakerID, "7");
    ASSERT_EQ(read.transcript.segments[1].words.size(), 1U);
    EXPECT_FLOAT_EQ(read.transcript.segments[1].words[0].probability, 1.0F);
}

TEST(AnswerReading, ProgressIsZeroUnlessItCanBeRead) {
    EXPECT_FLOAT_EQ(readBy(Progress, R"({"success":true,"progress":0.25})").progress, 0.25F);
    EXPECT_FLOAT_EQ(readBy(Progress, R"({"success":false,"progress":0.25})", KsNN_Error).progress, 0.0F);
}

} // namespace
