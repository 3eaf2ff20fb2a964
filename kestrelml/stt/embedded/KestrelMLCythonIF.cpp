#include "kestrelml/stt/KestrelMLCythonIF.h"

#include "kestrelml/stt/embedded/EmbeddedInterpreter.h"

#include <Poco/JSON/Parser.h>

#include <KestrelMLCythonAutoGen.h>
#include <Python.h>
#include <mutex>

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

/// Calls one of the module's entry points.
/// @return Its JSON text; empty after a Python error, which is printed.
template <typename EntryPoint, typename... Arguments>
std::string callModule(EntryPoint entryPoint, const Arguments&... arguments) {
    if (!stt::canEnterModule()) return {};
    std::string text;
    if (PyObject* answer = entryPoint(arguments...)) {
        if (const char* utf8 = PyUnicode_AsUTF8(answer)) text = utf8;
        Py_DECREF(answer);
    }
    if (text.empty()) PyErr_Print();
    return text;
}

KestrelMLCythonIF::Answer parse(const std::string& text) {
    if (text.empty()) return {};
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// @throws const char* `failure` when there is no text.
KestrelMLCythonIF::Answer parseOrThrow(const std::string& text, const char* failure) {
    if (text.empty()) throw failure;
    return parse(text);
}

} // namespace

std::shared_ptr<KestrelMLCythonIF> KestrelMLCythonIF::get() {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    if (state.bridge) return state.bridge;

    state.bridge = std::make_shared<KestrelMLCythonIF>();
    const stt::InterpreterStart start = stt::startInterpreter(state.logDirectory);
    state.bridge->mSetUp = start.succeeded;
    state.bridge->mModule = start.module;
    if (start.succeeded) {
        state.bridge->mModelDirectoryAnswer = callModule(SetSTTModelDirCy, state.modelDirectory);
        if (state.bridge->mModelDirectoryAnswer.empty()) throw "KestrelMLCythonIF::SetSTTParentDir error";
    }
    return state.bridge;
}

void KestrelMLCythonIF::shutdown() {
    ProcessState& state = processState();
    const std::lock_guard lock(state.mutex);
    if (const auto bridge = std::exchange(state.bridge, nullptr)) stt::releaseModule(bridge->mModule);
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
    if (!mSetUp) return {};
    // The module reads the samples only; its array type knows no constant ones.
    return parseOrThrow(callModule(STTUploadAudioCy, startSample, startSample + numSamples, mediaGuid,
                                   projectGuid, const_cast<std::int16_t*>(samples), numSamples),
                        "KestrelMLCythonIF::STTProcessAudio error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::finalizeTranscript(const std::string& mediaGuid,
                                                                const std::string& projectGuid,
                                                                const std::string& audioTracks,
                                                                std::size_t totalSamples,
                                                                const std::string& langCode) {
    if (!mSetUp) return {};
    return parseOrThrow(
        callModule(STTFinalizeCy, mediaGuid, projectGuid, audioTracks, totalSamples, langCode),
        "KestrelMLCythonIF::STTFinalizeTranscript error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::transcribeAudio(const std::string& mediaGuid, bool removeSymbols,
                                                             bool removeAudioDescriptions, bool makePhrases,
                                                             float diarizationThreshold) {
    if (!mSetUp) return {};
    return parse(callModule(STTTranscribeAudioCy, mediaGuid, removeSymbols, removeAudioDescriptions,
                            makePhrases, diarizationThreshold));
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::loadSemanticSearchModels(const std::string& modelDir,
                                                                      const std::string& extensionLibrary) {
    if (!mSetUp) return {};
    return parseOrThrow(callModule(SemanticSearchLoadModelsCy, modelDir, extensionLibrary),
                        "KestrelMLCythonIF::SemanticSearchLoadModels error");
}

KestrelMLCythonIF::Answer KestrelMLCythonIF::semanticSearchTextEmbedding(const std::string& text) {
    if (!mSetUp) return {};
    return parseOrThrow(callModule(SemanticSearchGetStringVectorEmbeddingCy, text),
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
