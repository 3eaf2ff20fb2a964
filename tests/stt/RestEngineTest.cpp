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
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using kestrel_test::RecordedRequest;
using kestrel_test::Reply;
using kestrel_test::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kUploadAnswer =
    R"({"success":true,"mediaGuid":"m","projectGuid":"p","start_sample":0,"end_sample":4})";

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

struct Operation {
    const char* name;
    KsNN_ErrorCode (*call)(KsNNSpeechToTextInterface&);
    std::string line;
    std::string body;
    std::string answer;
    bool acceptsCreated;
    std::string statusMessage;
    std::string lacking;      ///< Message for an answer that lacks a key, or that refuses.
    bool textTrueOnly = true; ///< Whether only the text "true" counts as success.
    std::string unchecked{};  ///< Keys that need not be there, or whose absence is an exception.
    bool saysWhy = true;      ///< Whether the message ends with the error of a refusal.
};

// clang-format off
const Operation kOperations[] = {
    {"SetModelDir", [](auto& e) { return e.SetModelDir("/models", false); },
     "PUT /set_stt_model_dir", R"({"modelDir":"/models"})",
     R"({"success":true,"modelDir":"/models"})", true, "KsNNSTTRest SetModelDir error: ",
     "KsNNSTT checkSetModelDir error: "},
    {"GetSupportedLanguages", [](auto& e) { std::vector<KsNNLanguage> out; return e.GetSupportedLanguages(out, false); },
     "GET /stt_getSupportedLanguages", "",
     R"({"success":true,"languages":{"en":{"language":"English","local":"English"}}})", false,
     "KsNNSTTRest::GetSupportedLanguages err: ", "KsNNSTTRest::GetSupportedLanguages err: ", true, "", false},
    {"ProcessAudio", [](auto& e) { return e.ProcessAudio(ramp(4).data(), 48000, 4, "m", "p", false); },
     "PUT /stt_upload_audio",
     R"({"start_sample":48000,"end_sample":48004,"mediaGuid":"m","projectGuid":"p",)"
     R"("audioSamples":"1P7V/tb+1/4=","encodedData":true})",
     kUploadAnswer, true, "KsNNSTTRest ProcessAudio error: ",
     "KsNNSTT checkAudioUpload error: ", true, "", false},
    {"FinalizeTranscript", [](auto& e) { KsNNDB_STTClipEntry out; return e.FinalizeTranscript(out, 64000, "m", "p", "A1, A2", "en", false); },
     "PUT /stt_finalize",
     R"({"total_samples":64000,"mediaGuid":"m","projectGuid":"p","audioTracks":"A1, A2","langCode":"en"})",
     R"({"success":true,"total_samples":64000,"audioTracks":"A1, A2","mediaGuid":"m","projectGuid":"p",)"
     R"("model":"w","device":"cpu","transcriptSegments":[]})",
     true, "KsNNSTTRest FinalizeTranscript error: ", "checkFinalizeTranscript error: ", false,
     "audioTracks transcriptSegments"},
    {"TranscribeAudio", [](auto& e) { KsNNTranscript out; return e.TranscribeAudio(out, "m", {true, false, true}, 0.01F); },
     "PUT /stt_transcribe_audio",
     R"({"mediaGuid":"m","removeSymbols":true,"removeAudioDescriptions":false,"makePhrases":true,)"
     R"("diarizationThreshold":0.01})",
     R"({"success":true,"model":"w","device":"cpu","segments":[]})", true, "KsNNSTTRest TranscribeAudio error: ",
     "buildTranscriptFromJson error: ", false, "model device segments"},
    {"Cancel", [](auto& e) { return e.Cancel(false); },
     "PUT /stt_cancel", "{}", R"({"success":true})", false, "KsNNSTTRest Cancel error: ",
     "checkCancel error: "},
    {"GetProgress", [](auto& e) { float out = 0.0F; return e.GetProgress(out, false); },
     "PUT /stt_progress", "{}", R"({"success":true,"progress":0.5})", false, "KsNNSTTRest GetProgress error: ",
     "checkGetProgress error: ", true, "", false},
};
// clang-format on

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

TEST_P(RestOperation, JudgesTheStatusAndPassesTransportFailuresThrough) {
    const Operation& operation = GetParam();
    KsNNSpeechToTextREST engine = engineWith();
    const auto call = [&](Reply reply) {
        mServer.script({std::move(reply)});
        return operation.call(engine);
    };
    EXPECT_EQ(call(Reply::json(201, operation.answer)), operation.acceptsCreated ? KsNN_Success : KsNN_Error);
    for (const int status : {404, 500}) {
        EXPECT_EQ(call(Reply::json(status, operation.answer)), KsNN_Error);
        EXPECT_THAT(engine.GetErrorStr(), testing::EndsWith(", " + operation.statusMessage + "\n"));
    }
    EXPECT_EQ(call(Reply::cutConnection()), KsNN_Exception);
    EXPECT_THAT(engine.GetErrorStr(), testing::StartsWith("KsNN Error: "));
}

TEST_P(RestOperation, ReportsAnswersThatLackAKeyOrRefuse) {
    const Operation& operation = GetParam();
    const auto good = [&] {
        return Poco::JSON::Parser().parse(operation.answer).extract<Poco::JSON::Object::Ptr>();
    };
    KsNNSpeechToTextREST engine = engineWith();
    const auto reportOf = [&](const Poco::JSON::Object::Ptr& answer) {
        std::ostringstream text;
        answer->stringify(text);
        mServer.script({Reply::json(200, text.str())});
        engine.ResetErrorStr();
        const KsNN_ErrorCode code = operation.call(engine);
        EXPECT_EQ(code, engine.GetErrorStr().empty() ? KsNN_Success : KsNN_Error);
        return engine.GetErrorStr();
    };
    const auto reportWith = [&](const Poco::Dynamic::Var& success) {
        auto answer = good();
        answer->set("success", success);
        if (success == false) answer->set("error", "why");
        return reportOf(answer);
    };
    for (const std::string& key : good()->getNames()) {
        if (operation.unchecked.find(key) != std::string::npos) continue;
        auto answer = good();
        answer->remove(key);
        const std::string& message =
            operation.name == std::string("SetModelDir") ? "KsNNSTT JSON err" : operation.lacking;
        EXPECT_THAT(reportOf(answer), HasSubstr(", " + message + "\n")) << key;
    }
    EXPECT_THAT(reportWith(false),
                HasSubstr(", " + operation.lacking + (operation.saysWhy ? "why\n" : "\n")));
    EXPECT_EQ(reportWith("true"), "");
    for (const char* value : {"True", "1"})
        EXPECT_EQ(reportWith(value).empty(), !operation.textTrueOnly) << value;
    EXPECT_NE(reportWith({}), "");
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

TEST_F(RestEngine, StartsWithTheLocalServiceAndNoLanguage) {
    const KsNNSpeechToTextREST engine(1, 2, 3, "");
    EXPECT_EQ(engine.GetURI(), "http://127.0.0.1:5000/");
    EXPECT_EQ(engine.getLanguage(), "None");
}

TEST_F(RestEngine, Base64AudioBreaksLinesAndComesBack) {
    KsNNSpeechToTextREST engine = engineWith();
    for (const std::size_t size : {0U, 1U, 2U, 3U, 26U, 27U, 28U, 54U, 1000U, 16001U}) {
        SCOPED_TRACE(size);
        const std::vector<std::int16_t> samples = ramp(size);
        std::stringstream text("left over");
        engine.encodeAudioBase64(samples.data(), size, text);
        const std::string lines = text.str();
        std::size_t base64Size = 0;
        for (std::size_t begin = 0; begin < lines.size();) {
            const std::size_t end = std::min(lines.find("\r\n", begin), lines.size());
            EXPECT_TRUE(end == lines.size() ? end - begin <= 72 : end - begin == 72);
            base64Size += end - begin;
            begin = end + 2;
        }
        EXPECT_EQ(base64Size, (size * 2 + 2) / 3 * 4);
        if (size > 0) {
            EXPECT_EQ(engine.debugInternals(samples.data(), size, false), KsNN_Success);
        }
    }
}

class DebugFiles : public RestEngine {
protected:
    DebugFiles() {
        Poco::File(mFolder.path()).createDirectory();
        setenv("TMPDIR", mFolder.path().c_str(), 1);
        unsetenv("KESTREL_DEBUG_DIR");
        mServer.otherwise([](const RecordedRequest&) { return Reply::json(200, kUploadAnswer); });
    }
    ~DebugFiles() override {
        unsetenv("TMPDIR");
        unsetenv("KESTREL_DEBUG_DIR");
    }

    /// Two chunks and one text, with the debug flag; the operations succeed whatever becomes of the files.
    std::string printedWhileWriting() {
        KsNNSpeechToTextREST engine = engineWith();
        testing::internal::CaptureStdout();
        for (const std::size_t start : {0U, 4U})
            EXPECT_EQ(engine.ProcessAudio(mSamples.data(), start, mSamples.size(), "m", "p", true),
                      KsNN_Success);
        EXPECT_EQ(engine.debugInternals(mSamples.data(), mSamples.size(), true), KsNN_Success);
        return testing::internal::GetCapturedStdout();
    }

    static std::vector<std::uintmax_t> sizesIn(const fs::path& folder) {
        std::vector<std::uintmax_t> sizes;
        for (const auto& file : fs::directory_iterator(folder))
            sizes.push_back(file.file_size());
        return sizes;
    }

    const Poco::TemporaryFile mFolder;
    const fs::path mPrivate = fs::path(mFolder.path()) / ("kestrelml-debug-" + std::to_string(geteuid()));
};

TEST_F(DebugFiles, GoToTheFolderThatIsSet) {
    const fs::path chosen = fs::path(mFolder.path()) / "chosen" / "folder";
    setenv("KESTREL_DEBUG_DIR", chosen.c_str(), 1);
    printedWhileWriting();
    EXPECT_THAT(sizesIn(chosen), testing::UnorderedElementsAre(8U, 8U, 12U));
    EXPECT_FALSE(fs::exists(mPrivate));
}

TEST_F(DebugFiles, GoToAPrivateTemporaryFolderOtherwise) {
    for (int i = 0; i < 2; ++i) // made, then found
        printedWhileWriting();
    EXPECT_THAT(sizesIn(mPrivate), testing::UnorderedElementsAre(8U, 8U, 8U, 8U, 12U));
    EXPECT_EQ(fs::status(mPrivate).permissions(), fs::perms::owner_all);
}

TEST_F(DebugFiles, AreNotWrittenWhereOthersMayRead) {
    const fs::path elsewhere = fs::path(mFolder.path()) / "elsewhere";
    fs::create_directory(elsewhere);
    fs::permissions(elsewhere, fs::perms::owner_all);
    fs::create_directory_symlink(elsewhere, mPrivate);
    EXPECT_THAT(printedWhileWriting(), HasSubstr("cannot write debug file"));
    fs::remove(mPrivate);
    fs::create_directory(mPrivate);
    fs::permissions(mPrivate, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    EXPECT_THAT(printedWhileWriting(), HasSubstr("cannot write debug file"));
    EXPECT_THAT(sizesIn(elsewhere), ElementsAre());
    EXPECT_THAT(sizesIn(mPrivate), ElementsAre());
}

TEST_F(DebugFiles, ThatCannotBeWrittenAreMentioned) {
    setenv("KESTREL_DEBUG_DIR", "/proc/no/such/place", 1);
    EXPECT_THAT(printedWhileWriting(), HasSubstr("cannot write debug file"));
}

} // namespace
