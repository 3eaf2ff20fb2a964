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
    /// @param audioTracks The host's description of the tracks, handed through.
    /// @param langCode    A code that `GetSupportedLanguages` lists.
    virtual KsNN_ErrorCode FinalizeTranscript(KsNNDB_STTClipEntry& entry, std::size_t totalSamples,
                                              const std::string& mediaGuid, const std::string& projectGuid,
                                              const std::string& audioTracks, const std::string& langCode,
                                              bool debug) = 0;

    /// Transcribes audio that was uploaded with an empty `projectGuid`; the engine guesses the language.
    /// @param diarizationThreshold Sparsity threshold of the speaker clustering, 0.01 by custom.
    virtual KsNN_ErrorCode TranscribeAudio(KsNNTranscript& transcript, const std::string& mediaGuid,
                                           const KsNNPostProcessingOptions& options,
                                           float diarizationThreshold) = 0;

    /// Asks the running transcription to stop at its next segment.
    virtual KsNN_ErrorCode Cancel(bool debug) = 0;
    /// @param progress Receives the fraction of the clip that is done, 0 to 1.
    virtual KsNN_ErrorCode GetProgress(float& progress, bool debug) = 0;
    /// Appends the supported languages, by ascending code.
    virtual KsNN_ErrorCode GetSupportedLanguages(std::vector<KsNNLanguage>& languages, bool debug) = 0;

    std::string getLanguage() const;

    /// Replaces `out` by the Base64 text of the samples (little-endian), in lines of 72 characters ended by
    /// CR LF.
    void encodeAudioBase64(const std::int16_t* samples, std::size_t numSamples, std::stringstream& out);
    /// Encodes and decodes the samples and compares. With `writeFile` the text goes to the debug folder, if
    /// one is set.
    KsNN_ErrorCode debugInternals(const std::int16_t* samples, std::size_t numSamples, bool writeFile);

protected:
    std::vector<KsNNLanguage> mSupportedLanguages; ///< The last list that was fetched successfully.
    std::string mLanguage = "None";
};
