#include "kestrelml/stt/KsNNSpeechToTextREST.h"

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/core/Report.h"
#include "kestrelml/stt/AnswerChecks.h"
#include "kestrelml/stt/DebugDump.h"

namespace {

using Poco::JSON::Object;
using namespace kestrelml;

constexpr unsigned kShort = 10;
constexpr unsigned kUpload = 60;
constexpr unsigned kTranscription = 900;

struct Endpoint {
    const char* method;
    const char* path;
    unsigned timeoutSeconds;
    bool acceptsCreated; ///< Status 201 counts as success, beside 200.
    const char* statusMessage;
};

constexpr Endpoint kSetModelDir{"PUT", "set_stt_model_dir", kShort, true, "KsNNSTTRest SetModelDir error: "};
constexpr Endpoint kLanguages{"GET", "stt_getSupportedLanguages", kShort, false,
                              "KsNNSTTRest::GetSupportedLanguages err: "};
constexpr Endpoint kUploadAudio{"PUT", "stt_upload_audio", kUpload, true, "KsNNSTTRest ProcessAudio error: "};
constexpr Endpoint kFinalize{"PUT", "stt_finalize", kTranscription, true,
                             "KsNNSTTRest FinalizeTranscript error: "};
constexpr Endpoint kTranscribe{"PUT", "stt_transcribe_audio", kTranscription, true,
                               "KsNNSTTRest TranscribeAudio error: "};
constexpr Endpoint kCancel{"PUT", "stt_cancel", kShort, false, "KsNNSTTRest Cancel error: "};
constexpr Endpoint kProgress{"PUT", "stt_progress", kShort, false, "KsNNSTTRest GetProgress error: "};

Object::Ptr jsonObject(std::initializer_list<std::pair<const char*, Poco::Dynamic::Var>> members) {
    Object::Ptr object = new Object(Poco::JSON_PRESERVE_KEY_ORDER);
    for (const auto& [key, value] : members)
        object->set(key, value);
    return object;
}

/// One request to the speech service: sends `body`, judges the status, and hands the answer to `check`.
template <typename Check>
KsNN_ErrorCode call(KsNNBase& engine, const Endpoint& endpoint, const Object::Ptr& body, bool debug,
                    Check check) {
    Object::Ptr answer;
    unsigned status = 0;
    const KsNN_ErrorCode result = RESTCall(endpoint.method, endpoint.path, endpoint.timeoutSeconds, body,
                                           answer, status, &engine, false, false, debug);
    if (result != KsNN_Success) return result;
    if (status != 200 && !(endpoint.acceptsCreated && status == 201))
        return detail::fail(&engine, endpoint.statusMessage, debug);
    return check(answer);
}

} // namespace

KsNNSpeechToTextREST::KsNNSpeechToTextREST(std::size_t chunkLength, std::size_t overlapLength,
                                           std::size_t batchCount, const std::string& modelDir)
    : KsNNSpeechToTextInterface(chunkLength, overlapLength, batchCount), mModelDir(modelDir) {
}

KsNNSpeechToTextREST::~KsNNSpeechToTextREST() = default;

KsNN_ErrorCode KsNNSpeechToTextREST::SetModelDir(const std::string& modelDir, bool debug) {
    ResetErrorStr();
    const Object::Ptr body = jsonObject({{"modelDir", modelDir}});
    return call(*this, kSetModelDir, body, debug,
                [&](const stt::Answer& answer) { return stt::checkSetModelDir(answer, *this, debug); });
}

KsNN_ErrorCode KsNNSpeechToTextREST::ProcessAudio(const std::int16_t* samples, std::size_t startSample,
                                                  std::size_t numSamples, const std::string& mediaGuid,
                                                  const std::string& projectGuid, bool debug) {
    if (debug) stt::dumpAudio(samples, numSamples);
    ResetErrorStr();
    if (!mModelDirSent && !mModelDir.empty()) {
        const KsNN_ErrorCode result = SetModelDir(mModelDir, debug);
        if (result != KsNN_Success) return result;
        mModelDirSent = true;
    }
    std::stringstream audio;
    encodeAudioBase64(samples, numSamples, audio);
    const Object::Ptr body = jsonObject({{"start_sample", static_cast<std::uint64_t>(startSample)},
                                         {"end_sample", static_cast<std::uint64_t>(startSample + numSamples)},
                                         {"mediaGuid", mediaGuid},
                                         {"projectGuid", projectGuid},
                                         {"audioSamples", audio.str()},
                                         {"encodedData", true}});
    return call(*this, kUploadAudio, body, debug,
                [&](const stt::Answer& answer) { return stt::checkAudioUpload(answer, *this, debug); });
}

KsNN_ErrorCode KsNNSpeechToTextREST::FinalizeTranscript(KsNNDB_STTClipEntry& entry, std::size_t totalSamples,
                                                        const std::string& mediaGuid,
                                                        const std::string& projectGuid,
                                                        const std::string& audioTracks,
                                                        const std::string& langCode, bool debug) {
    ResetErrorStr();
    const Object::Ptr body = jsonObject({{"total_samples", static_cast<std::uint64_t>(totalSamples)},
                                         {"mediaGuid", mediaGuid},
                                         {"projectGuid", projectGuid},
                                         {"audioTracks", audioTracks},
                                         {"langCode", langCode}});
    return call(*this, kFinalize, body, debug, [&](const stt::Answer& answer) {
        return stt::checkFinalizeTranscript(answer, entry, *this, debug);
    });
}

KsNN_ErrorCode KsNNSpeechToTextREST::TranscribeAudio(KsNNTranscript& transcript, const std::string& mediaGuid,
                                                     const KsNNPostProcessingOptions& options,
                                                     float diarizationThreshold) {
    ResetErrorStr();
    const Object::Ptr body = jsonObject({{"mediaGuid", mediaGuid},
                                         {"removeSymbols", options.removeSymbols},
                                         {"removeAudioDescriptions", options.removeAudioDescriptions},
                                         {"makePhrases", options.makePhrases},
                                         {"diarizationThreshold", diarizationThreshold}});
    return call(*this, kTranscribe, body, false, [&](const stt::Answer& answer) {
        return stt::buildTranscriptFromJson(answer, transcript, *this);
    });
}

KsNN_ErrorCode KsNNSpeechToTextREST::Cancel(bool debug) {
    ResetErrorStr();
    return call(*this, kCancel, jsonObject({}), debug,
                [&](const stt::Answer& answer) { return stt::checkCancel(answer, *this, debug); });
}

KsNN_ErrorCode KsNNSpeechToTextREST::GetProgress(float& progress, bool debug) {
    ResetErrorStr();
    return call(*this, kProgress, jsonObject({}), debug, [&](const stt::Answer& answer) {
        return stt::checkGetProgress(answer, progress, *this, debug);
    });
}

KsNN_ErrorCode KsNNSpeechToTextREST::GetSupportedLanguages(std::vector<KsNNLanguage>& languages, bool debug) {
    ResetErrorStr();
    const Object::Ptr noBody;
    return call(*this, kLanguages, noBody, debug, [&](const stt::Answer& answer) {
        return keepLanguages(stt::checkGetSupportedLanguages(answer, languages, *this, debug), languages,
                             kLanguages.statusMessage, debug);
    });
}
