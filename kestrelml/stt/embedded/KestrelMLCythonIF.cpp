#include "kestrelml/stt/KestrelMLCythonIF.h"

#include "kestrelml/stt/embedded/TranscriptionModule.h"

#include <Poco/JSON/Parser.h>

#include <mutex>
#include <stdexcept>

namespace {

using namespace kestrelml;

struct ProcessState {
    std::mutex mutex;
    std::shared_ptr<KestrelMLCythonIF> bridge;
    std::string modelDirectory;
    std::string logDirectory;
};

/// Never destroyed: the host's threads may still poll while the process ends.
ProcessState& processState() {
    static ProcessState& state = *new ProcessState;
    return state;
}

KestrelMLCythonIF::Answer parse(const std::string& text) {
    if (text.empty()) return {};
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// @throws Failure(failure) when there is no text.
template <typename Failure = const char*>
KestrelMLCythonIF::Answer parseOrThrow(const std::string& text, const char* failure) {
    if (text.empty()) throw Failure(failure);
    return parse(text);
}

} // namespace

KestrelMLCythonIF::KestrelMLCythonIF() = default;
KestrelMLCythonIF::~KestrelMLCythonIF() = default;

std::shared_ptr<KestrelMLCythonIF> KestrelMLCythonIF::get() {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    if (state.bridge) return state.bridge;

    stt::InterpreterStart start = stt::startInterpreter(state.logDirectory);
    auto bridge = std::make_shared<KestrelMLCythonIF>();
    bridge->mModule = std::move(start.module);
    bridge->mSetUpFailure = std::move(start.failure);
    state.bridge = bridge;
    if (bridge->isSetUp()) {
        bridge->mModelDirectoryAnswer = bridge->mModule->setModelDirectory(state.modelDirectory);
        if (bridge->mModelDirectoryAnswer.empty()) throw "KestrelMLCythonIF::SetSTTParentDir error";
    }
    return bridge;
}

void KestrelMLCythonIF::shutdown() {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    const auto bridge = std::exchange(state.bridge, nullptr);
    if (bridge && bridge->isSetUp()) bridge->mModule->release();
    state.modelDirectory.clear();
    state.logDirectory.clear();
}

void KestrelMLCythonIF::setDirectories(const std::string& modelDirectory, const std::string& logDirectory) {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    state.modelDirectory = modelDirectory;
    state.logDirectory = logDirectory;
}

std::string KestrelMLCythonIF::modelDirectory() {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    return state.modelDirectory;
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::uploadAudio(std::size_t startSample, std::size_t numSamples,
                                                         const std::string& mediaGuid,
                                                         const std::string& projectGuid,
                                                         const std::int16_t* samples) {
    if (!isSetUp()) return {};
    return parseOrThrow(mModule->uploadAudio(startSample, startSample + numSamples, mediaGuid, projectGuid,
                                             samples, numSamples),
                        "KestrelMLCythonIF::STTProcessAudio error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::finalizeTranscript(const std::string& mediaGuid,
                                                                const std::string& projectGuid,
                                                                const std::string& audioTracks,
                                                                std::size_t totalSamples,
                                                                const std::string& langCode) {
    if (!isSetUp()) return {};
    return parseOrThrow(mModule->finalize(mediaGuid, projectGuid, audioTracks, totalSamples, langCode),
                        "KestrelMLCythonIF::STTFinalizeTranscript error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::transcribeAudio(const std::string& mediaGuid, bool removeSymbols,
                                                             bool removeAudioDescriptions, bool makePhrases,
                                                             float diarizationThreshold) {
    if (!isSetUp()) return {};
    return parse(mModule->transcribe(mediaGuid, removeSymbols, removeAudioDescriptions, makePhrases,
                                     diarizationThreshold));
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::loadSemanticSearchModels(const std::string& modelDir,
                                                                      const std::string& extensionLibrary) {
    if (!isSetUp()) return {};
    return parseOrThrow<std::runtime_error>(mModule->loadSemanticSearchModels(modelDir, extensionLibrary),
                                            "KestrelMLCythonIF::SemanticSearchLoadModels error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::semanticSearchTextEmbedding(const std::string& text) {
    if (!isSetUp()) return {};
    return parseOrThrow<std::runtime_error>(mModule->embedText(text),
                                            "KestrelMLCythonIF::GetSemanticSearchTextVectorEmbedding error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::modelDirectoryAnswer() const {
    return parse(mModelDirectoryAnswer);
}

// These are called from C frames, which no exception may cross; creating the bridge may throw.

std::uint8_t Get_TranscribeCancel() {
    try {
        return KestrelMLCythonIF::get()->cancelRequested() ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

void Set_TranscribeProgress(float progress) {
    try {
        KestrelMLCythonIF::get()->setProgress(progress);
    } catch (...) {
    }
}
