#pragma once

/// @file
/// The bridge to the transcription module in the embedded interpreter. Internal, not installed.

#include "kestrelml/core/Export.h"

#include <Poco/JSON/Object.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace kestrelml::stt {
class TranscriptionModule;
}

/// The one connection of this process to the module.
///
/// When the module gives no answer, after its error went to "PythonStdErr.txt", the calls that take part in a
/// transcription throw a `const char*`, those of semantic search a `std::runtime_error`. They come from the
/// thread that created the bridge; on any other they fail the same way. When the bridge is not set up they do
/// nothing and their answer is null.
class KestrelMLCythonIF {
public:
    using Answer = Poco::JSON::Object::Ptr;

    KestrelMLCythonIF();
    KestrelMLCythonIF(const KestrelMLCythonIF&) = delete;
    KestrelMLCythonIF& operator=(const KestrelMLCythonIF&) = delete;
    ~KestrelMLCythonIF();

    /// The bridge; the first call creates it, which starts the interpreter. It stays valid while the caller
    /// holds it, even if another thread shuts it down.
    static std::shared_ptr<KestrelMLCythonIF> get();
    /// Releases the module and forgets the folders. The interpreter stays.
    static void shutdown();

    /// The folders that the next bridge is created with. `logDirectory` is empty or ends in a separator.
    static void setDirectories(const std::string& modelDirectory, const std::string& logDirectory);
    static std::string modelDirectory();

    bool isSetUp() const { return mModule != nullptr; }
    /// Report of the failed set-up.
    const std::string& setUpFailure() const { return mSetUpFailure; }
    /// Whether the calling thread is the one that created the bridge.
    bool belongsToThisThread() const { return mThread == std::this_thread::get_id(); }

    Answer uploadAudio(std::size_t startSample, std::size_t numSamples, const std::string& mediaGuid,
                       const std::string& projectGuid, const std::int16_t* samples);
    Answer finalizeTranscript(const std::string& mediaGuid, const std::string& projectGuid,
                              const std::string& audioTracks, std::size_t totalSamples,
                              const std::string& langCode);
    /// Null when the module gives no answer; this one does not throw.
    Answer transcribeAudio(const std::string& mediaGuid, bool removeSymbols, bool removeAudioDescriptions,
                           bool makePhrases, float diarizationThreshold);
    Answer loadSemanticSearchModels(const std::string& modelDir, const std::string& extensionLibrary);
    Answer semanticSearchTextEmbedding(const std::string& text);
    /// What the module said to the model folder when the bridge was created.
    Answer modelDirectoryAnswer() const;

    // From any thread; these do not enter the interpreter.
    void setCancelRequested(bool requested) { mCancelRequested.exchange(requested ? 1 : 0); }
    bool cancelRequested() const { return mCancelRequested != 0; }
    void setProgress(float progress) { mProgress.exchange(progress); }
    float progress() const { return mProgress; }

private:
    const std::thread::id mThread = std::this_thread::get_id();
    std::unique_ptr<kestrelml::stt::TranscriptionModule> mModule; ///< Null when the set-up failed.
    std::string mSetUpFailure;
    std::string mModelDirectoryAnswer;
    std::atomic<std::uint8_t> mCancelRequested{0};
    std::atomic<float> mProgress{0.0F};
};

extern "C" {
/// For the module: whether the host asked to stop, 0 or 1.
KSNN_API std::uint8_t Get_TranscribeCancel();
/// For the module: how much of the clip is done, 0 to 1.
KSNN_API void Set_TranscribeProgress(float progress);
}
