#pragma once

/// @file
/// Speech-to-text in this process, by the transcription module in an embedded Python interpreter.

#include "kestrelml/stt/KsNNSpeechToTextInterface.h"

/// Engine that runs the transcription module inside the host process.
///
/// The interpreter is started once per process by the first call that needs it, from the folder
/// "PythonModules" beside the host executable, and never stopped. Calls that enter it (`ProcessAudio`,
/// `FinalizeTranscript`, `TranscribeAudio`) come from the thread that made the first one. `Cancel` and
/// `GetProgress` may be called from any thread, also on the running object; from another thread they leave
/// its error text alone.
///
/// When the interpreter cannot be started, operations return `KsNN_SetupFailed`, now and until a `Shutdown`;
/// "PythonStdErr.txt" in the log folder says why. A library built without the interpreter always returns that
/// code, with the reason in the error text. `GetSupportedLanguages` only reads a file and works all the same.
///
/// When the module ends a call without an answer, the first call and `ProcessAudio` and `FinalizeTranscript`
/// throw a `const char*` that names the call; its Python error is in the same file. Only misuse brings this
/// about: a call from another thread, an identifier that is not UTF-8, a process that is a Python interpreter
/// itself.
class KSNN_API KsNNSpeechToTextCYTHON : public KsNNSpeechToTextInterface {
public:
    /// @param ownsShutdown Destroying this object does what `Shutdown` does.
    /// @param modelDir     Folder of "Languages.json" and the speech models; kept for the whole process.
    /// @param logDir       Folder of "PythonStdErr.txt"; empty means the working directory.
    KsNNSpeechToTextCYTHON(std::size_t chunkLength, std::size_t overlapLength, std::size_t batchCount,
                           bool ownsShutdown, const std::string& modelDir, const std::string& logDir);
    KsNNSpeechToTextCYTHON(const KsNNSpeechToTextCYTHON&) = default;
    KsNNSpeechToTextCYTHON& operator=(const KsNNSpeechToTextCYTHON&) = default;
    ~KsNNSpeechToTextCYTHON() override;

    /// Loads the recogniser's runtime from "PythonModules" ahead of time, so that no other copy is found
    /// first. Does not start the interpreter.
    static bool EarlyLoadLibrary();
    /// Releases the module and the process-wide folders. The interpreter stays, for the next engine.
    static void Shutdown();

    /// The argument is not used: the answer is that of the folder the interpreter was started with.
    KsNN_ErrorCode SetModelDir(const std::string& modelDir, bool debug) override;
    KsNN_ErrorCode ProcessAudio(const std::int16_t* samples, std::size_t startSample, std::size_t numSamples,
                                const std::string& mediaGuid, const std::string& projectGuid,
                                bool debug) override;
    KsNN_ErrorCode FinalizeTranscript(KsNNDB_STTClipEntry& entry, std::size_t totalSamples,
                                      const std::string& mediaGuid, const std::string& projectGuid,
                                      const std::string& audioTracks, const std::string& langCode,
                                      bool debug) override;
    KsNN_ErrorCode TranscribeAudio(KsNNTranscript& transcript, const std::string& mediaGuid,
                                   const KsNNPostProcessingOptions& options,
                                   float diarizationThreshold) override;
    KsNN_ErrorCode Cancel(bool debug) override;
    KsNN_ErrorCode GetProgress(float& progress, bool debug) override;
    KsNN_ErrorCode GetSupportedLanguages(std::vector<KsNNLanguage>& languages, bool debug) override;

private:
    bool mOwnsShutdown;
};
