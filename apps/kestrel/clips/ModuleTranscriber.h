#pragma once

#include "apps/kestrel/clips/Transcription.h"
#include "apps/kestrel/home/Recognisers.h"

#include <chrono>
#include <cstdint>

namespace kestrel {

/// Transcribes with the transcription module, in the speech service or embedded in this process.
class ModuleTranscriber final : public Transcriber {
public:
    /// @throws Failure when the engine is unavailable or does not know the language.
    ModuleTranscriber(EngineKind kind, Home home, std::string language, const RecogniserChoice& recogniser);
    ~ModuleTranscriber() override;

    KsNNDB_STTClipEntry transcribe(ClipAudio& audio, const ClipKey& key, const StoredBefore& stored,
                                   const PartSink& done, const Callbacks& callbacks) override;

private:
    class Upload;
    class Watch;

    KsNNDB_STTClipEntry run(const std::vector<std::int16_t>& reel, AudioPart& part, ClipAudio& audio,
                            const ClipKey& key, const Callbacks& callbacks);
    std::string otherLanguage(const AudioPart& part, const ClipKey& key, const Callbacks& callbacks);

    void checkModel(const KsNNDB_STTClipEntry& made) const;

    EngineKind mKind;
    Home mHome;
    Recogniser mModel;
    std::vector<std::string> mTerms;
    std::filesystem::path mSettingsFile;
    std::string mLanguage;
    std::unique_ptr<KsNNSpeechToTextInterface> mEngine;
    std::unique_ptr<KsNNSpeechToTextInterface> mObserver; ///< Asks for progress while the engine is at work.
};

/// How much of a part can be recognised before the speech service gives up, by how fast it has been so far:
/// a share of the part; 1 as long as there is nothing to fear or to tell.
double affordableShare(std::chrono::duration<double> elapsed, double progress);

} // namespace kestrel
