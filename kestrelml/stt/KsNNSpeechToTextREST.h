#pragma once

/// @file
/// Speech-to-text through the local speech service.

#include "kestrelml/stt/KsNNSpeechToTextInterface.h"

/// Engine that talks to the local speech service over HTTP.
///
/// One object is used by one thread at a time. The service keeps one progress value and one cancel flag, so a
/// second engine on another thread or in another process can poll and cancel while this one waits for its
/// transcript.
///
/// When the service cannot be reached or gives no JSON answer, operations return `KsNN_Exception`.
class KSNN_API KsNNSpeechToTextREST : public KsNNSpeechToTextInterface {
public:
    /// @param modelDir Folder of the speech models, sent to the service before the first chunk; empty sends
    /// nothing.
    KsNNSpeechToTextREST(std::size_t chunkLength, std::size_t overlapLength, std::size_t batchCount,
                         const std::string& modelDir);
    KsNNSpeechToTextREST(const KsNNSpeechToTextREST&) = default;
    KsNNSpeechToTextREST(KsNNSpeechToTextREST&&) = default;
    KsNNSpeechToTextREST& operator=(const KsNNSpeechToTextREST&) = default;
    KsNNSpeechToTextREST& operator=(KsNNSpeechToTextREST&&) = default;
    ~KsNNSpeechToTextREST() override;

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
    KsNN_ErrorCode SetModelDir(const std::string& modelDir, bool debug) override;

    std::string mModelDir;
    bool mModelDirSent = false;
};
