#pragma once

/// @file
/// The transcription module in the Python interpreter of this process. A library built without the
/// interpreter has another implementation of `startInterpreter`, which always fails; nothing else knows the
/// difference.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kestrelml::stt {

/// The module's entry points. Each returns the module's answer as JSON text, or an empty text after a Python
/// error, which went to the error log.
///
/// The thread that starts the interpreter holds its lock for good: only that thread may enter it, and no
/// other Python thread runs meanwhile. Calls from other threads return an empty text.
class TranscriptionModule {
public:
    TranscriptionModule() = default;
    TranscriptionModule(const TranscriptionModule&) = delete;
    TranscriptionModule& operator=(const TranscriptionModule&) = delete;
    virtual ~TranscriptionModule() = default;

    virtual std::string setModelDirectory(const std::string& modelDirectory) = 0;
    virtual std::string uploadAudio(std::size_t startSample, std::size_t endSample,
                                    const std::string& mediaGuid, const std::string& projectGuid,
                                    const std::int16_t* samples, std::size_t numSamples) = 0;
    virtual std::string finalize(const std::string& mediaGuid, const std::string& projectGuid,
                                 const std::string& audioTracks, std::size_t totalSamples,
                                 const std::string& langCode) = 0;
    virtual std::string transcribe(const std::string& mediaGuid, bool removeSymbols,
                                   bool removeAudioDescriptions, bool makePhrases,
                                   float diarizationThreshold) = 0;
    virtual std::string loadSemanticSearchModels(const std::string& modelDir,
                                                 const std::string& extensionLibrary) = 0;
    virtual std::string embedText(const std::string& text) = 0;

    /// Gives up the reference to the module, and the redirected error output with it. On a thread that may
    /// not enter the interpreter, and the second time, it does nothing.
    virtual void release() = 0;
};

struct InterpreterStart {
    std::unique_ptr<TranscriptionModule> module; ///< Null when the interpreter could not be started.
    std::string failure;                         ///< Report for the host when `module` is null.
};

/// Starts the interpreter and imports the module, with the error output going to "PythonStdErr.txt". Never
/// throws: whatever goes wrong is a failed start, whose reason is in that file.
///
/// A running interpreter is left as it is. One that failed after it was begun is not begun again: packages
/// with native code cannot be loaded twice in a process.
/// @param logDirectory Empty, or ending in a separator.
InterpreterStart startInterpreter(const std::string& logDirectory) noexcept;

} // namespace kestrelml::stt
