#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"

#include "kestrelml/core/Report.h"
#include "kestrelml/platform/LibraryLoading.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/stt/AnswerChecks.h"
#include "kestrelml/stt/DebugDump.h"
#include "kestrelml/stt/JsonFile.h"
#include "kestrelml/stt/KestrelMLCythonIF.h"

namespace {

using namespace kestrelml;

/// Runs `operation` on the bridge, creating it if need be.
template <typename Operation>
KsNN_ErrorCode withBridge(KsNNBase& engine, bool debug, Operation operation) {
    const std::shared_ptr<KestrelMLCythonIF> bridge = KestrelMLCythonIF::get();
    // Another thread polls or cancels a running engine: its texts are that engine's.
    if (bridge->belongsToThisThread()) engine.ResetErrorStr();
    if (!bridge->isSetUp()) {
        detail::fail(&engine, bridge->setUpFailure(), debug);
        return KsNN_SetupFailed;
    }
    try {
        return operation(*bridge);
    } catch (const std::exception&) { // an answer that is not JSON fails as one that a check cannot read
        return detail::reportCaught({"KsNNSTTCython error: "}, &engine, debug);
    }
}

stt::Answer readLanguageTable(const std::string& modelDirectory) {
    const std::string path = modelDirectory + platform::pathSeparator() + "Languages.json";
    stt::Answer answer = new Poco::JSON::Object;
    answer->set("success", true);
    answer->set("languages", stt::readJsonFile(platform::pathFromUtf8(path)));
    return answer;
}

} // namespace

KsNNSpeechToTextCYTHON::KsNNSpeechToTextCYTHON(std::size_t chunkLength, std::size_t overlapLength,
                                               std::size_t batchCount, bool ownsShutdown,
                                               const std::string& modelDir, const std::string& logDir)
    : KsNNSpeechToTextInterface(chunkLength, overlapLength, batchCount), mOwnsShutdown(ownsShutdown) {
    KestrelMLCythonIF::setDirectories(modelDir, platform::withTrailingSeparator(logDir));
}

KsNNSpeechToTextCYTHON::~KsNNSpeechToTextCYTHON() {
    if (mOwnsShutdown) Shutdown();
}

bool KsNNSpeechToTextCYTHON::EarlyLoadLibrary() {
    return platform::loadRecogniserRuntime(platform::executableDirectory() / "PythonModules");
}

void KsNNSpeechToTextCYTHON::Shutdown() {
    KestrelMLCythonIF::shutdown();
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::SetModelDir(const std::string& /*modelDir*/, bool debug) {
    return withBridge(*this, debug, [&](KestrelMLCythonIF& bridge) {
        return stt::checkSetModelDir(bridge.modelDirectoryAnswer(), *this, debug);
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::ProcessAudio(const std::int16_t* samples, std::size_t startSample,
                                                    std::size_t numSamples, const std::string& mediaGuid,
                                                    const std::string& projectGuid, bool debug) {
    if (debug) stt::dumpAudio(samples, numSamples);
    return withBridge(*this, debug, [&](KestrelMLCythonIF& bridge) {
        if (startSample == 0) {
            bridge.setCancelRequested(false);
            bridge.setProgress(0.0F);
        }
        return stt::checkAudioUpload(
            bridge.uploadAudio(startSample, numSamples, mediaGuid, projectGuid, samples), *this, debug);
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::FinalizeTranscript(
    KsNNDB_STTClipEntry& entry, std::size_t totalSamples, const std::string& mediaGuid,
    const std::string& projectGuid, const std::string& audioTracks, const std::string& langCode, bool debug) {
    return withBridge(*this, debug, [&](KestrelMLCythonIF& bridge) {
        return stt::checkFinalizeTranscript(
            bridge.finalizeTranscript(mediaGuid, projectGuid, audioTracks, totalSamples, langCode), entry,
            *this, debug);
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::TranscribeAudio(KsNNTranscript& transcript,
                                                       const std::string& mediaGuid,
                                                       const KsNNPostProcessingOptions& options,
                                                       float diarizationThreshold) {
    return withBridge(*this, false, [&](KestrelMLCythonIF& bridge) {
        return stt::buildTranscriptFromJson(bridge.transcribeAudio(mediaGuid, options.removeSymbols,
                                                                   options.removeAudioDescriptions,
                                                                   options.makePhrases, diarizationThreshold),
                                            transcript, *this);
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::Cancel(bool debug) {
    return withBridge(*this, debug, [](KestrelMLCythonIF& bridge) {
        bridge.setCancelRequested(true);
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::GetProgress(float& progress, bool debug) {
    return withBridge(*this, debug, [&](KestrelMLCythonIF& bridge) {
        progress = bridge.progress();
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNSpeechToTextCYTHON::GetSupportedLanguages(std::vector<KsNNLanguage>& languages,
                                                             bool debug) {
    constexpr const char* kMessage = "KsNNSTTCython::GetSupportedLanguages err:";
    ResetErrorStr();
    return detail::guarded({kMessage, KsNN_Error, kMessage}, this, debug, [&] {
        const stt::Answer answer = readLanguageTable(KestrelMLCythonIF::modelDirectory());
        return keepLanguages(stt::checkGetSupportedLanguages(answer, languages, *this, debug), languages,
                             kMessage, debug);
    });
}
