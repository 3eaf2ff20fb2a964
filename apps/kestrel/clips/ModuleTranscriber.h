#pragma once

#include "apps/kestrel/clips/Transcription.h"

namespace kestrel {

/// Transcribes with the transcription module, in the speech service or embedded in this process.
class ModuleTranscriber final : public Transcriber {
public:
    /// @throws Failure when the engine is unavailable or does not know the language.
    ModuleTranscriber(EngineKind kind, Home home, std::string language);

    KsNNDB_STTClipEntry transcribe(AudioReader& audio, const ClipKey& key,
                                   const Callbacks& callbacks) override;

private:
    class Part;
    class Watch;

    EngineKind mKind;
    Home mHome;
    std::string mLanguage;
    std::unique_ptr<KsNNSpeechToTextInterface> mEngine;
    std::unique_ptr<KsNNSpeechToTextInterface> mObserver; ///< Asks for progress while the engine is at work.
};

} // namespace kestrel
