#include "kestrelml/stt/KsNNSpeechToTextREST.h"
#include "tests/support/ScriptedServer.h"

#include <Poco/File.h>
#include <Poco/JSON/Parser.h>
#include <Poco/TemporaryFile.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace {

using kestrel_test::RecordedRequest;
using kestrel_test::Reply;
using kestrel_test::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kUploadAnswer =
    R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":0,"end_sample":4})";
constexpr const char* kLanguageAnswer =
    R"({"success":true,"languages":{"en":{"language":"English","local":"English"}}})";

std::vector<std::int16_t> ramp(std::size_t size) {
    std::vector<std::int16_t> samples(size);
    std::iota(samples.begin(), samples.end(), std::int16_t{-300});
    return samples;
}

class RestEngine : public testing::Test {
protected:
    KsNNSpeechToTextREST engineWith(const std::string& modelDir = "") {
        KsNNSpeechToTextREST engine(0, 0, 0, modelDir);
        engine.SetURI(mServer.uri().c_str());
        return engine;
    }

    ScriptedServer mServer{ScriptedServer::Protocol::Http};
    const std::vector<std::int16_t> mSamples = ramp(4);
};

using Call = KsNN_ErrorCode (*)(KsNNSpeechToTextInterface&);

KsNN_ErrorCode setModelDir(KsNNSpeechToTextInterface& e) {
    return e.SetModelDir("/models", false);
}
KsNN_ErrorCode getLanguages(KsNNSpeechToTextInterface& e) {
    std::vector<KsNNLanguage> languages;
    return e.GetSupportedLanguages(languages, false);
}
KsNN_ErrorCode upload(KsNNSpeechToTextInterface& e) {
    const std::vector<std::int16_t> samples = ramp(4);
    return e.ProcessAudio(samples.data(), 48000, samples.size(), "m", "p", false);
}
KsNN_ErrorCode finalize(KsNNSpeechToTextInterface& e) {
    KsNNDB_STTClipEntry entry;
    return e.FinalizeTranscript(entry, 64000, "m", "p", "A1, A2", "en", false);
}
KsNN_ErrorCode transcribe(KsNNSpeechToTextInterface& e) {
    KsNNTranscript transcript;
    return e.TranscribeAudio(transcript, "m", {true, false, true}, 0.01F);
}
KsNN_ErrorCode cancel(KsNNSpeechToTextInterface& e) {
    return e.Cancel(false);
}
KsNN_ErrorCode getProgress(KsNNSpeechToTextInterface& e) {
    float progress = 0.0F;
    return e.GetProgress(progress, false);
}

struct Operation {
    const char* name;
    Call call;
    std::string line;
    std::string body;
    std::string answer;
    bool acceptsCreated;
    std::string statusMessage;
};

const Operation kOperations[] = {
    {"SetModelDir", setModelDir, "PUT /set_stt_model_dir", R"({"modelDir":"/models"})",
     R"({"success":true,"modelDir":"/models"})", true, "KsNNSTTRest SetModelDir error: "},
    {"GetSupportedLanguages", getLanguages, "GET /stt_getSupportedLanguages", "", kLanguageAnswer, false,
     "KsNNSTTRest::GetSupportedLanguages err: "},
    {"ProcessAudio", upload, "PUT /stt_upload_audio",
     R"({"start_sample":48000,"end_sample":48004,"mediaGuid":"m","projectGuid":"p",)"
     R"("audioSamples":"1P7V/tb+1/4=","encodedData":true})",
     kUploadAnswer, true, "KsNNSTTRest ProcessAudio error: "},
    {"FinalizeTranscript", finalize, "PUT /stt_finalize",
     R"({"total_samples":64000,"mediaGuid":"m","projectGuid":"p","audioTracks":"A1, A2","langCode":"en"})",
     R"({"success":true,"total_samples":64000,"audioTracks":"A1, A2","mediaGuid":"m","projectGuid":"p",)"
     R"("model":"w","device":"cpu","transcriptSegments":[]})",
     true, "KsNNSTTRest FinalizeTranscript error: "},
    {"TranscribeAudio", transcribe, "PUT /stt_transcribe_audio",
     R"({"mediaGuid":"m","removeSymbols":true,"removeAudioDescriptions":false,"makePhrases":true,)"
     R"("diarizationThreshold":0.01})",
     R"({"success":true,"model":"w","device":"cpu","segments":[]})", true,
     "KsNNSTTRest TranscribeAudio error: "},
    {"Cancel", cancel, "PUT /stt_cancel", "{}", R"({"success":true})", false, "KsNNSTTRest Cancel error: "},
    {"GetProgress", getProgress, "PUT /stt_progress", "{}", R"({"success":true,"progress":0.5})", false,
     "KsNNSTTRest GetProgress error: "},
};

class RestOperation : public RestEngine, public testing::WithParamInterface<Operation> {};

TEST_P(RestOperation, SendsItsRequest) {
    mServer.script({Reply::json(200, GetParam().answer)});
    KsNNSpeechToTextREST engine = engineWith();
    EXPECT_EQ(GetParam().call(engine), KsNN_Success) << engine.GetErrorStr();
    EXPECT_EQ(engine.GetErrorStr(), "");
    const std::vector<RecordedRequest> requests = mServer.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].line(), GetParam().line);
    EXPECT_EQ(requests[0].body, GetParam().body);
    for (const auto& [name, value] : requests[0].headers)
        EXPECT_STRCASENE(name.c_str(), "Authorization");
}

TEST_P(RestOperation, JudgesTheStatus) {
    const Operation& operation = GetParam();
    mServer.script({Reply::json(201, operation.answer), Reply::json(404, operation.answer),
                    Reply::json(500, operation.answer)});
    KsNNSpeechToTextREST engine = engineWith();
    EXPECT_EQ(operation.call(engine), operation.acceptsCreated ? KsNN_Success : KsNN_Error);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(operation.call(engine), KsNN_Error);
        EXPECT_THAT(engine.GetErrorStr(), testing::EndsWith(", " + operation.statusMessage + "\n"));
    }
}

TEST_P(RestOperation, PassesTransportFailuresThrough) {
    mServer.script({Reply::html(), Reply::empty(), Reply::cutConnection(), Reply::json(200, "[]")});
    KsNNSpeechToTextREST engine = engineWith();
    while (mServer.unused() > 0) {
        EXPECT_EQ(GetParam().call(engine), KsNN_Exception);
        EXPECT_THAT(engine.GetErrorStr(), testing::StartsWith("KsNN Error: "));
    }
}

INSTANTIATE_TEST_SUITE_P(All, RestOperation, testing::ValuesIn(kOperations),
                         [](const auto& each) { return each.param.name; });

TEST_F(RestEngine, SendsTheModelFolderBeforeTheFirstChunkUntilItIsAccepted) {
    mServer.script({Reply::json(200, R"({"success":false,"modelDir":"/m","error":"not now"})"),
                    Reply::json(200, R"({"success":true,"modelDir":"/m"})"), Reply::json(200, kUploadAnswer),
                    Reply::json(200, kUploadAnswer)});
    KsNNSpeechToTextREST engine = engineWith("/m");
    const auto send = [&] {
        return engine.ProcessAudio(mSamples.data(), 0, mSamples.size(), "m", "p", false);
    };
    EXPECT_EQ(send(), KsNN_Error);
    EXPECT_THAT(engine.GetErrorStr(), HasSubstr("checkSetModelDir error: not now"));
    EXPECT_EQ(send(), KsNN_Success);
    EXPECT_EQ(send(), KsNN_Success);
    EXPECT_THAT(mServer.conversation(), ElementsAre("PUT /set_stt_model_dir", "PUT /set_stt_model_dir",
                                                    "PUT /stt_upload_audio", "PUT /stt_upload_audio"));
}

TEST_F(RestEngine, AFailedLanguageListIsReportedUnderTheOperationsName) {
    mServer.script({Reply::json(200, R"({"success":false})")});
    KsNNSpeechToTextREST engine = engineWith();
    EXPECT_EQ(getLanguages(engine), KsNN_Error);
    EXPECT_THAT(engine.GetErrorStr(), testing::EndsWith(", KsNNSTTRest::GetSupportedLanguages err: \n"));
}

TEST_F(RestEngine, WithoutServiceTheTransportsCodeIsReturned) {
    KsNNSpeechToTextREST engine = engineWith();
    engine.SetURI("http://127.0.0.1:1/");
    EXPECT_EQ(cancel(engine), KsNN_Exception);
}

TEST_F(RestEngine, StartsWithTheLocalServiceAndNoLanguage) {
    const KsNNSpeechToTextREST engine(1, 2, 3, "");
    EXPECT_EQ(engine.GetURI(), "http://127.0.0.1:5000/");
    EXPECT_EQ(engine.getLanguage(), "None");
}

class Base64Audio : public RestEngine, public testing::WithParamInterface<std::size_t> {};

TEST_P(Base64Audio, BreaksLinesAndComesBack) {
    const std::vector<std::int16_t> samples = ramp(GetParam());
    KsNNSpeechToTextREST engine = engineWith();
    std::stringstream text("left over");
    engine.encodeAudioBase64(samples.data(), samples.size(), text);
    const std::string lines = text.str();

    std::string base64;
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find("\r\n", begin), lines.size());
        EXPECT_LE(end - begin, 72U);
        EXPECT_TRUE(end == lines.size() || end - begin == 72) << "only the last line is shorter";
        base64 += lines.substr(begin, end - begin);
        begin = end + 2;
    }
    EXPECT_EQ(base64.size(), (samples.size() * 2 + 2) / 3 * 4);
    EXPECT_EQ(base64.size() - base64.find_last_not_of('=') - 1, samples.empty() ? 0U : samples.size() % 3)
        << "padding";
    EXPECT_EQ(engine.debugInternals(samples.data(), samples.size(), false), KsNN_Success);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Base64Audio, testing::Values(1, 2, 3, 26, 27, 28, 54, 1000, 16001));

TEST_F(RestEngine, AnEmptyChunkEncodesToNothing) {
    KsNNSpeechToTextREST engine = engineWith();
    std::stringstream text("left over");
    engine.encodeAudioBase64(nullptr, 0, text);
    EXPECT_EQ(text.str(), "");
}

TEST_F(RestEngine, DebugFilesGoToTheDebugFolderOnlyWhenOneIsSet) {
    Poco::TemporaryFile folder;
    mServer.otherwise([](const RecordedRequest&) { return Reply::json(200, kUploadAnswer); });
    KsNNSpeechToTextREST engine = engineWith();
    const auto run = [&] {
        testing::internal::CaptureStdout();
        engine.ProcessAudio(mSamples.data(), 0, mSamples.size(), "m", "p", true);
        engine.ProcessAudio(mSamples.data(), 4, mSamples.size(), "m", "p", true);
        engine.debugInternals(mSamples.data(), mSamples.size(), true);
        return testing::internal::GetCapturedStdout();
    };
    unsetenv("KESTREL_DEBUG_DIR");
    run();
    setenv("KESTREL_DEBUG_DIR", folder.path().c_str(), 1);
    EXPECT_FALSE(folder.exists());
    run();
    std::vector<std::uintmax_t> sizes;
    for (const auto& file : std::filesystem::directory_iterator(folder.path()))
        sizes.push_back(file.file_size());
    EXPECT_THAT(sizes, testing::UnorderedElementsAre(8U, 8U, 12U)) << "two chunks and one text";

    setenv("KESTREL_DEBUG_DIR", "/proc/no/such/place", 1);
    EXPECT_THAT(run(), HasSubstr("cannot write debug file"));
    unsetenv("KESTREL_DEBUG_DIR");
}

} // namespace
