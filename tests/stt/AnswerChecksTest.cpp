#include "kestrelml/stt/AnswerChecks.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

namespace {

using namespace kestrelml::stt;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

/// What an answer is read into.
struct Read {
    std::vector<KsNNLanguage> languages;
    KsNNDB_STTClipEntry entry;
    KsNNTranscript transcript;
    float progress = 0.5F;
};

struct Check {
    const char* name;
    KsNN_ErrorCode (*run)(const Answer&, Read&, KsNNBase&);
    std::string goodAnswer;
    std::string unchecked; ///< Keys that need not be there, or whose absence is an exception.
    std::string message;   ///< Of an answer that lacks another key.
    std::string refusal;   ///< Of "success": false with the error "why".
    bool textTrueOnly;     ///< Whether only the text "true" counts as success.
};

// clang-format off
const Check kChecks[] = {
    {"SetModelDir", [](const Answer& a, Read&, KsNNBase& t) { return checkSetModelDir(a, t, false); },
     R"({"success":true,"modelDir":"/m"})", "", "KsNNSTT JSON err", "KsNNSTT checkSetModelDir error: why", true},
    {"Languages", [](const Answer& a, Read& r, KsNNBase& t) { return checkGetSupportedLanguages(a, r.languages, t, false); },
     R"({"success":true,"languages":{"de":{"language":"German","local":"Deutsch"}}})", "",
     "checkGetSupportedLanguages error: ", "checkGetSupportedLanguages error: why", true},
    {"AudioUpload", [](const Answer& a, Read&, KsNNBase& t) { return checkAudioUpload(a, t, false); },
     R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":48000,"end_sample":64000})", "",
     "KsNNSTT checkAudioUpload error: ", "KsNNSTT checkAudioUpload error: ", true},
    {"Finalize", [](const Answer& a, Read& r, KsNNBase& t) { return checkFinalizeTranscript(a, r.entry, t, false); },
     R"({"success":true,"total_samples":1,"mediaGuid":"m","projectGuid":"p","model":"w","device":"cpu","audioTracks":"A1",
         "transcriptSegments":[]})", "audioTracks transcriptSegments",
     "checkFinalizeTranscript error: ", "checkFinalizeTranscript error: why", false},
    {"Transcript", [](const Answer& a, Read& r, KsNNBase& t) { return buildTranscriptFromJson(a, r.transcript, t); },
     R"({"success":true,"model":"w","device":"cpu","segments":[]})", "model device segments",
     "buildTranscriptFromJson error: ", "buildTranscriptFromJson error: why", false},
    {"Cancel", [](const Answer& a, Read&, KsNNBase& t) { return checkCancel(a, t, false); },
     R"({"success":true})", "", "checkCancel error: ", "checkCancel error: why", true},
    {"Progress", [](const Answer& a, Read& r, KsNNBase& t) { return checkGetProgress(a, r.progress, t, false); },
     R"({"success":true,"progress":0.25})", "", "checkGetProgress error: ", "checkGetProgress error: ", true},
};
// clang-format on

Answer parse(const std::string& json) {
    return Poco::JSON::Parser().parse(json).extract<Answer>();
}

class AnswerChecks : public testing::TestWithParam<Check> {
protected:
    std::string reportOf(const Answer& answer) {
        KsNNBase target("http://127.0.0.1/");
        Read read;
        const KsNN_ErrorCode code = GetParam().run(answer, read, target);
        EXPECT_EQ(code, target.GetErrorStr().empty() ? KsNN_Success : KsNN_Error);
        return target.GetErrorStr();
    }
    /// For the good answer with another "success".
    std::string reportWith(const Poco::Dynamic::Var& success, const char* error = nullptr) {
        Answer answer = parse(GetParam().goodAnswer);
        answer->set("success", success);
        if (error != nullptr) answer->set("error", error);
        return reportOf(answer);
    }
};

TEST_P(AnswerChecks, AcceptTheGoodAnswerAndReportEachMissingKey) {
    EXPECT_EQ(reportOf(parse(GetParam().goodAnswer)), "");
    for (const std::string& key : parse(GetParam().goodAnswer)->getNames()) {
        if (GetParam().unchecked.find(key) != std::string::npos) continue;
        Answer answer = parse(GetParam().goodAnswer);
        answer->remove(key);
        EXPECT_THAT(reportOf(answer), EndsWith(", " + GetParam().message + "\n")) << key;
    }
}

TEST_P(AnswerChecks, TellSuccessFromRefusalAndFromWhatCannotBeRead) {
    EXPECT_THAT(reportWith(false, "why"), EndsWith(", " + GetParam().refusal + "\n"));
    EXPECT_NE(reportWith(false), "");
    EXPECT_EQ(reportWith("true"), "");
    for (const char* value : {"True", "1"})
        EXPECT_EQ(reportWith(value).empty(), !GetParam().textTrueOnly) << value;
    for (const std::string& report : {reportOf({}), reportWith(Poco::Dynamic::Var())}) {
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
    EXPECT_EQ(kChecks[check].run(parse(answer), read, target), expected) << target.GetErrorStr();
    return read;
}

std::string finalizeAnswer(const std::string& segments) {
    return R"({"success":true,"total_samples":16000,"audioTracks":"A1","mediaGuid":"m","projectGuid":"p",)"
           R"("model":"whisper-base","device":"cpu","transcriptSegments":[)" +
           segments + "]}";
}

TEST(AnswerReading, LanguagesComeInOrderOfTheirCodesUpToAFaultyOne) {
    const Read read = readBy(Languages,
                             R"({"success":true,"languages":{"zh":{"language":"Chinese"},)"
                             R"("fr":{"language":"French","local":"Français"},)"
                             R"("de":{"language":"German","local":"Deutsch"}}})",
                             KsNN_Error);
    std::string all;
    for (const KsNNLanguage& language : read.languages)
        all += language.code + " " + language.localName + " " + language.anglicizedName + ", ";
    EXPECT_EQ(all, "de Deutsch German, fr Français French, ");
}

TEST(AnswerReading, SegmentsAreAppendedToTheEntryAndOtherFieldsStay) {
    Read before;
    before.entry.clipName = "clip";
    before.entry.progressComplete = true;
    before.entry.segments.resize(1);
    const Read read =
        readBy(Finalize,
               finalizeAnswer(R"({"segment":0,"transcript":"two words","language":"en","speakerID":"2",)"
                              R"("wordStartsMS":[10,500],"wordEndsMS":[400,900],"wordConfidences":[97,31]},)"
                              R"({"segment":1,"transcript":"","language":"en","speakerID":"1",)"
                              R"("wordStartsMS":[],"wordEndsMS":[]})"),
               KsNN_Success, before);
    EXPECT_EQ(read.entry.model + read.entry.audioTracks + read.entry.clipName, "whisper-baseA1clip");
    EXPECT_FALSE(read.entry.progressComplete);
    ASSERT_EQ(read.entry.segments.size(), 3U);
    const KsNNDBEntrySeg& seg = read.entry.segments[1];
    EXPECT_EQ(seg.transcript + seg.mediaGuid + seg.projectGuid + seg.speakerID + seg.speakerGuid,
              "two wordsmp2Unk");
    EXPECT_THAT(seg.wordStartsMS, ElementsAre(10, 500));
    EXPECT_THAT(seg.wordConfidences, ElementsAre(97, 31));
    EXPECT_THAT(seg.wordEndsMS, ElementsAre(400, 900));
    EXPECT_THAT(read.entry.segments[2].wordStartsMS, ElementsAre());
    EXPECT_THAT(read.entry.segments[2].wordConfidences, ElementsAre());
}

TEST(AnswerReading, SilenceBecomesOneEmptySegment) {
    const Read read = readBy(Finalize, finalizeAnswer(""));
    ASSERT_EQ(read.entry.segments.size(), 1U);
    const KsNNDBEntrySeg& seg = read.entry.segments[0];
    EXPECT_EQ(seg.segment, 0);
    EXPECT_EQ(seg.transcript + seg.language + seg.speakerID + seg.mediaGuid, "UnkUnkm");
}

TEST(AnswerReading, AFaultySegmentFailsAndKeepsThoseBefore) {
    const std::string good =
        R"({"segment":0,"transcript":"a","language":"en","speakerID":"1","wordStartsMS":[1],"wordEndsMS":[2]})";
    for (const std::string faulty : {R"("wordStartsMS":[3],"wordEndsMS":[4])", R"("speakerID":"1")",
                                     R"("speakerID":"1","wordStartsMS":[3,4],"wordEndsMS":[4])"}) {
        const std::string segments =
            good + R"(,{"segment":1,"transcript":"b c","language":"en",)" + faulty + "}";
        EXPECT_EQ(readBy(Finalize, finalizeAnswer(segments), KsNN_Error).entry.segments.size(), 1U) << faulty;
    }
}

TEST(AnswerReading, ATranscriptSegmentWithoutSpeakerContinuesThePreviousOne) {
    const Read read =
        readBy(Transcript, R"({"success":true,"model":"whisper-base","device":"cpu","segments":[)"
                           R"({"text":"one","language":"en","speakerID":"7",)"
                           R"("words":[{"startMs":5,"endMs":20,"word":"one","probability":0.75}]},)"
                           R"({"text":"two","language":"en","words":[]}]})");
    ASSERT_EQ(read.transcript.segments.size(), 2U);
    EXPECT_EQ(read.transcript.device, "cpu");
    EXPECT_EQ(read.transcript.segments[0].words.at(0).endMs, 20);
    EXPECT_FLOAT_EQ(read.transcript.segments[0].words.at(0).probability, 0.75F);
    EXPECT_EQ(read.transcript.segments[1].text + read.transcript.segments[1].speakerID, "two7");
}

TEST(AnswerReading, ProgressIsZeroUnlessItCanBeRead) {
    EXPECT_FLOAT_EQ(readBy(Progress, R"({"success":true,"progress":0.25})").progress, 0.25F);
    EXPECT_FLOAT_EQ(readBy(Progress, R"({"success":false,"progress":0.25})", KsNN_Error).progress, 0.0F);
}

} // namespace
