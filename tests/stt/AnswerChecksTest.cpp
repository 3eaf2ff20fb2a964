#include "kestrelml/stt/AnswerChecks.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

namespace {

using namespace kestrelml::stt;
using testing::ElementsAre;
using testing::HasSubstr;

Answer parse(const std::string& json) {
    return json.empty() ? Answer() : Poco::JSON::Parser().parse(json).extract<Answer>();
}

/// Text that the answers of one case are read into.
struct Read {
    std::vector<KsNNLanguage> languages;
    KsNNDB_STTClipEntry entry;
    KsNNTranscript transcript;
    float progress = 0.5F;
};

using Check = KsNN_ErrorCode (*)(const Answer&, Read&, KsNNBase&);

KsNN_ErrorCode modelDir(const Answer& a, Read&, KsNNBase& target) {
    return checkSetModelDir(a, target, false);
}
KsNN_ErrorCode languages(const Answer& a, Read& r, KsNNBase& target) {
    return checkGetSupportedLanguages(a, r.languages, target, false);
}
KsNN_ErrorCode upload(const Answer& a, Read&, KsNNBase& target) {
    return checkAudioUpload(a, target, false);
}
KsNN_ErrorCode finalize(const Answer& a, Read& r, KsNNBase& target) {
    return checkFinalizeTranscript(a, r.entry, target, false);
}
KsNN_ErrorCode transcript(const Answer& a, Read& r, KsNNBase& target) {
    return buildTranscriptFromJson(a, r.transcript, target);
}
KsNN_ErrorCode cancel(const Answer& a, Read&, KsNNBase& target) {
    return checkCancel(a, target, false);
}
KsNN_ErrorCode progress(const Answer& a, Read& r, KsNNBase& target) {
    return checkGetProgress(a, r.progress, target, false);
}

/// The report of a caught exception of the JSON library, which has no block for a message.
constexpr const char* kCaught = "className = ";

struct Case {
    const char* name;
    Check check;
    std::string answer;
    std::string report; ///< Message of the report, exactly; kCaught; or empty for a success.
};

std::string finalizeAnswer(const std::string& segments) {
    return R"({"success":true,"total_samples":16000,"audioTracks":"A1","mediaGuid":"m","projectGuid":"p",)"
           R"("model":"whisper-base","device":"cpu","transcriptSegments":)" +
           segments + "}";
}

std::string transcriptAnswer(const std::string& segments) {
    return R"({"success":true,"model":"whisper-base","device":"cpu","segments":)" + segments + "}";
}

class AnswerChecks : public testing::TestWithParam<Case> {};

TEST_P(AnswerChecks, Judge) {
    const Case& c = GetParam();
    KsNNBase target("http://127.0.0.1/");
    Read read;
    const KsNN_ErrorCode result = c.check(parse(c.answer), read, target);
    const std::string error = target.GetErrorStr();
    EXPECT_EQ(result, c.report.empty() ? KsNN_Success : KsNN_Error);
    if (c.report.empty()) {
        EXPECT_EQ(error, "");
    } else if (c.report == kCaught) {
        EXPECT_THAT(error, HasSubstr(kCaught));
        EXPECT_EQ(error.find("KsNN Error: "), error.rfind("KsNN Error: ")) << error;
    } else {
        EXPECT_THAT(error, testing::MatchesRegex("KsNN Error: [0-9]+, .*\n"));
        EXPECT_EQ(error.substr(error.find(", ") + 2), c.report + "\n");
    }
}

const std::string kLanguage = R"({"language":"English","local":"English"})";

const Case kCases[] = {
    {"ModelDirAccepted", modelDir, R"({"success":true,"modelDir":"/m"})", ""},
    {"ModelDirTextTrueAccepted", modelDir, R"({"success":"true","modelDir":"/m"})", ""},
    {"ModelDirWithoutSuccess", modelDir, R"({"modelDir":"/m"})", "KsNNSTT JSON err"},
    {"ModelDirWithoutFolder", modelDir, R"({"success":true})", "KsNNSTT JSON err"},
    {"ModelDirRefused", modelDir, R"({"success":false,"modelDir":"/m","error":"no such folder"})",
     "KsNNSTT checkSetModelDir error: no such folder"},
    {"ModelDirCapitalTrue", modelDir, R"({"success":"True","modelDir":"/m"})",
     "KsNNSTT checkSetModelDir error: "},
    {"ModelDirOne", modelDir, R"({"success":1,"modelDir":"/m"})", "KsNNSTT checkSetModelDir error: "},
    {"ModelDirNull", modelDir, R"({"success":null,"modelDir":"/m"})", kCaught},
    {"ModelDirNoAnswer", modelDir, "", kCaught},

    {"LanguagesListed", languages, R"({"success":true,"languages":{"en":)" + kLanguage + "}}", ""},
    {"LanguagesWithoutSuccess", languages, R"({"languages":{"en":)" + kLanguage + "}}",
     "checkGetSupportedLanguages error: "},
    {"LanguagesWithError", languages,
     R"({"success":true,"error":"broken","languages":{"en":)" + kLanguage + "}}",
     "checkGetSupportedLanguages error: broken"},
    {"LanguagesRefused", languages, R"({"success":false})", "KsNNSTT checkGetSupportedLanguages error: "},
    {"LanguagesMissing", languages, R"({"success":true})", "checkGetSupportedLanguages error: "},
    {"LanguagesEmpty", languages, R"({"success":true,"languages":{}})", "checkGetSupportedLanguages error: "},
    {"LanguagesNotAnObject", languages, R"({"success":true,"languages":["en"]})", kCaught},
    {"LanguageWithoutCode", languages, R"({"success":true,"languages":{"":)" + kLanguage + "}}",
     "checkGetSupportedLanguages error: "},
    {"LanguageNotAnObject", languages, R"({"success":true,"languages":{"en":"English"}})", kCaught},
    {"LanguagesNoAnswer", languages, "", kCaught},

    {"UploadAccepted", upload,
     R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":0,"end_sample":9})", ""},
    {"UploadWithoutEnd", upload, R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":0})",
     "KsNNSTT checkAudioUpload error: "},
    {"UploadRefused", upload,
     R"({"success":false,"mediaGuid":"m","projectGuid":"p","start_sample":0,"end_sample":9})",
     "KsNNSTT checkAudioUpload error: "},
    {"UploadNoAnswer", upload, "", kCaught},

    {"FinalizeWithoutSuccess", finalize, "{}", "checkFinalizeTranscript error: "},
    {"FinalizeCancelled", finalize, R"({"success":false,"error":"STT transcription cancelled"})",
     "checkFinalizeTranscript error: STT transcription cancelled"},
    {"FinalizeRefused", finalize, R"({"success":false})", "checkFinalizeTranscript error: "},
    {"FinalizeOneIsTrue", finalize,
     R"({"success":1,"total_samples":1,"mediaGuid":"m","projectGuid":"p","model":"w","device":"cpu",)"
     R"("audioTracks":"","transcriptSegments":[]})",
     ""},
    {"FinalizeWithoutDevice", finalize,
     R"({"success":true,"total_samples":1,"mediaGuid":"m","projectGuid":"p","model":"w"})",
     "checkFinalizeTranscript error: "},
    {"FinalizeSamplesNotANumber", finalize,
     R"({"success":true,"total_samples":"many","mediaGuid":"m","projectGuid":"p","model":"w","device":"cpu"})",
     kCaught},
    {"FinalizeWithoutTracks", finalize,
     R"({"success":true,"total_samples":1,"mediaGuid":"m","projectGuid":"p","model":"w","device":"cpu",)"
     R"("transcriptSegments":[]})",
     kCaught},
    {"FinalizeWithoutSegments", finalize,
     R"({"success":true,"total_samples":1,"mediaGuid":"m","projectGuid":"p","model":"w","device":"cpu",)"
     R"("audioTracks":""})",
     kCaught},
    {"FinalizeSegmentWithoutSpeaker", finalize,
     finalizeAnswer(R"([{"segment":0,"transcript":"a","language":"en"}])"),
     "checkFinalizeTranscript error: "},
    {"FinalizeSegmentWithoutTimes", finalize,
     finalizeAnswer(R"([{"segment":0,"transcript":"a","language":"en","speakerID":"1"}])"), kCaught},
    {"FinalizeNoAnswer", finalize, "", kCaught},

    {"TranscriptWithoutSuccess", transcript, "{}", "buildTranscriptFromJson error: "},
    {"TranscriptWithError", transcript, R"({"success":false,"error":"'clip'"})",
     "buildTranscriptFromJson error: 'clip'"},
    {"TranscriptRefused", transcript, R"({"success":false})", "buildTranscriptFromJson error: "},
    {"TranscriptWithoutModel", transcript, R"({"success":true,"device":"cpu","segments":[]})", kCaught},
    {"TranscriptWithoutWords", transcript, transcriptAnswer(R"([{"text":"a","language":"en"}])"), kCaught},
    {"TranscriptEmpty", transcript, transcriptAnswer("[]"), ""},
    {"TranscriptNoAnswer", transcript, "", kCaught},

    {"CancelAccepted", cancel, R"({"success":true})", ""},
    {"CancelWithoutSuccess", cancel, R"({"error":"x"})", "checkCancel error: "},
    {"CancelRefused", cancel, R"({"success":"1","error":"nothing runs"})", "checkCancel error: nothing runs"},
    {"CancelNoAnswer", cancel, "", kCaught},

    {"ProgressRead", progress, R"({"success":true,"progress":1})", ""},
    {"ProgressMissing", progress, R"({"success":true})", "checkGetProgress error: "},
    {"ProgressRefused", progress, R"({"success":false,"progress":0.5})", "checkGetProgress error: "},
    {"ProgressNotANumber", progress, R"({"success":true,"progress":"half"})", kCaught},
    {"ProgressNoAnswer", progress, "", kCaught},
};

INSTANTIATE_TEST_SUITE_P(Answers, AnswerChecks, testing::ValuesIn(kCases),
                         [](const auto& each) { return each.param.name; });

/// Runs a check on an answer, expecting the given result.
Read readBy(Check check, const std::string& answer, KsNN_ErrorCode expected = KsNN_Success, Read read = {}) {
    KsNNBase target("http://127.0.0.1/");
    EXPECT_EQ(check(parse(answer), read, target), expected) << target.GetErrorStr();
    return read;
}

TEST(AnswerReading, LanguagesComeInOrderOfTheirCodesUpToAFaultyOne) {
    const Read read = readBy(languages,
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
        readBy(finalize,
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
    const Read read = readBy(finalize, finalizeAnswer("[]"));
    ASSERT_EQ(read.entry.segments.size(), 1U);
    EXPECT_EQ(read.entry.segments[0].segment, 0);
    EXPECT_EQ(read.entry.segments[0].transcript, "");
    EXPECT_EQ(read.entry.segments[0].language, "Unk");
    EXPECT_EQ(read.entry.segments[0].speakerID, "Unk");
    EXPECT_EQ(read.entry.segments[0].mediaGuid, "m");
}

TEST(AnswerReading, AWordWithoutEndFailsAndKeepsTheSegmentsBefore) {
    const Read read =
        readBy(finalize,
               finalizeAnswer(R"([{"segment":0,"transcript":"a","language":"en","speakerID":"1",)"
                              R"("wordStartsMS":[1],"wordEndsMS":[2]},)"
                              R"({"segment":1,"transcript":"b c","language":"en","speakerID":"1",)"
                              R"("wordStartsMS":[3,4],"wordEndsMS":[4]}])"),
               KsNN_Error);
    EXPECT_EQ(read.entry.segments.size(), 1U);
}

TEST(AnswerReading, ATranscriptSegmentWithoutSpeakerContinuesThePreviousOne) {
    const Read read = readBy(
        transcript,
        transcriptAnswer(R"([{"text":"one","language":"en","speakerID":"7",)"
                         R"("words":[{"startMs":5,"endMs":20,"word":"one","probability":0.75}]},)"
                         R"({"text":"two","language":"en","words":[{"startMs":30,"endMs":40,"word":"two",)"
                         R"("probability":1}]}])"));
    ASSERT_EQ(read.transcript.segments.size(), 2U);
    EXPECT_EQ(read.transcript.device, "cpu");
    EXPECT_EQ(read.transcript.segments[0].words.at(0).endMs, 20);
    EXPECT_FLOAT_EQ(read.transcript.segments[0].words.at(0).probability, 0.75F);
    EXPECT_EQ(read.transcript.segments[1].speakerID, "7");
    ASSERT_EQ(read.transcript.segments[1].words.size(), 1U);
    EXPECT_FLOAT_EQ(read.transcript.segments[1].words[0].probability, 1.0F);
}

TEST(AnswerReading, ProgressIsZeroUnlessItCanBeRead) {
    EXPECT_FLOAT_EQ(readBy(progress, R"({"success":true,"progress":0.25})").progress, 0.25F);
    EXPECT_FLOAT_EQ(readBy(progress, R"({"success":false,"progress":0.25})", KsNN_Error).progress, 0.0F);
}

struct DebugCase {
    const char* name;
    std::function<void(KsNNBase&)> run;
    std::string printed;
};

class AnswerDebug : public testing::TestWithParam<DebugCase> {};

TEST_P(AnswerDebug, PrintsWhatWasRead) {
    KsNNBase target("http://127.0.0.1/");
    testing::internal::CaptureStdout();
    GetParam().run(target);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(GetParam().printed));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, AnswerDebug,
    testing::ValuesIn(std::vector<DebugCase>{
        {"ModelDir",
         [](KsNNBase& target) {
             checkSetModelDir(parse(R"({"success":true,"modelDir":"/m"})"), target, true);
         },
         "checkSetModelDir result: true, modelDir /m\n"},
        {"Languages",
         [](KsNNBase& target) {
             Read read;
             checkGetSupportedLanguages(parse(R"({"success":true,"languages":{"en":)" + kLanguage + "}}"),
                                        read.languages, target, true);
         },
         "checkGetSupportedLanguages result: true\n"
         "Code: en Local language: English Anglicized language: English\n"},
        {"Upload",
         [](KsNNBase& target) {
             checkAudioUpload(
                 parse(
                     R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":48000,"end_sample":64000})"),
                 target, true);
         },
         "checkAudioUpload result: true, mediaGuid m, 48000-64000\n"},
        {"Cancel", [](KsNNBase& target) { checkCancel(parse(R"({"success":true})"), target, true); },
         "checkCancel result: true\n"},
        {"Progress",
         [](KsNNBase& target) {
             float value = 0;
             checkGetProgress(parse(R"({"success":true,"progress":0.5})"), value, target, true);
         },
         "checkGetProgress result: true, progress 0.5\n"},
        {"Failure", [](KsNNBase& target) { checkCancel(parse("{}"), target, true); },
         ", checkCancel error: \n"},
    }),
    [](const auto& each) { return each.param.name; });

} // namespace
