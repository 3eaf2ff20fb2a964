#pragma once

/// @file
/// What every speech-to-text engine offers to a host.

#include "kestrelml/core/Export.h"
#include "kestrelml/core/KsNNBase.h"

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

/// A speech-to-text engine, driven clip by clip.
///
/// For each clip: `ProcessAudio` once per chunk in order, the first with `startSample` 0; then either
/// `FinalizeTranscript` or `TranscribeAudio`, which both end the clip's buffered audio. `Cancel` and
/// `GetProgress` act on the running transcription of the process; each engine says from which thread and
/// object.
///
/// Every operation empties the error text first and returns `KsNN_Success`, or `KsNN_Error` when the module's
/// answer is a failure or cannot be read, and leaves a report in the error text then. An engine adds its own
/// codes. Operations throw nothing unless an engine says so.
class KSNN_API KsNNSpeechToTextInterface : public KsNNBase {
public:
    /// The three sizes are part of the interface that all engines share; this base does not use them.
    KsNNSpeechToTextInterface(std::size_t chunkLength, std::size_t overlapLength, std::size_t batchCount);
    KsNNSpeechToTextInterface(const KsNNSpeechToTextInterface&) = default;
    KsNNSpeechToTextInterface(KsNNSpeechToTextInterface&&) = default;
    KsNNSpeechToTextInterface& operator=(const KsNNSpeechToTextInterface&) = default;
    KsNNSpeechToTextInterface& operator=(KsNNSpeechToTextInterface&&) = default;
    ~KsNNSpeechToTextInterface() override;

    /// Tells the engine where its speech models live.
    virtual KsNN_ErrorCode SetModelDir(const std::string& modelDir, bool debug) = 0;

    /// Hands one chunk of the clip's audio to the engine.
    /// @param samples     `numSamples` 16-bit mono samples at 16,000 per second; copied before the call
    /// returns.
    /// @param startSample Position of the first of them within the clip.
    virtual KsNN_ErrorCode ProcessAudio(const std::int16_t* samples, std::size_t startSample,
                                        std::size_t numSamples, const std::string& mediaGuid,
                                        const std::string& projectGuid, bool debug) = 0;

    /// Transcribes the uploaded audio of a clip and fills `entry`.
    /// @param audioTracks The host's description of the tracks, copied to the entry.
    /// @param langCode    A code that `GetSupportedLanguages` lists.
    virtual KsNN_ErrorCode FinalizeTranscript(KsNNDB_STTClipEntry& entry, std::size_t totalSamples,
                                              const std::string& mediaGuid, const std::string& projectGuid,
                                              const std::string& audioTracks, const std::string& langCode,
                                              bool debug) = 0;

    /// Transcribes audio that was uploaded with an empty `projectGuid`; the engine guesses the language.
    /// @param diarizationThreshold Sparsity threshold of the speaker clustering; 0.01 is usual.
    virtual KsNN_ErrorCode TranscribeAudio(KsNNTranscript& transcript, const std::string& mediaGuid,
                                           const KsNNPostProcessingOptions& options,
                                           float diarizationThreshold) = 0;

    /// Asks the running transcription to stop at its next segment.
    virtual KsNN_ErrorCode Cancel(bool debug) = 0;
    /// @param progress Receives the fraction of the clip that is done, 0 to 1.
    virtual KsNN_ErrorCode GetProgress(float& progress, bool debug) = 0;
    /// Appends the supported languages, by ascending code. Those before a faulty entry stay when it fails.
    virtual KsNN_ErrorCode GetSupportedLanguages(std::vector<KsNNLanguage>& languages, bool debug) = 0;

    /// Code of the current language; "None" until one is chosen.
    std::string getLanguage() const;

    /// Replaces `out` by the Base64 text of the samples (little-endian), in lines of 72 characters ended by
    /// CR LF.
    void encodeAudioBase64(const std::int16_t* samples, std::size_t numSamples, std::stringstream& out);
    /// Encodes and decodes the samples and compares.
    /// @param writeFile Also write the text to a debug file.
    /// @return `KsNN_Success`, or `KsNN_Error` when a sample does not come back as it was.
    KsNN_ErrorCode debugInternals(const std::int16_t* samples, std::size_t numSamples, bool writeFile);

protected:
    /// Ends `GetSupportedLanguages`: keeps a copy of a list that was read, or reports `failure`.
    /// @return `checked`.
    KsNN_ErrorCode keepLanguages(KsNN_ErrorCode checked, const std::vector<KsNNLanguage>& languages,
                                 const char* failure, bool debug);

    std::vector<KsNNLanguage> mSupportedLanguages; ///< The last list that was read successfully.
    std::string mLanguage = "None";
};
