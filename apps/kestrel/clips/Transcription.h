#pragma once

#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Engine.h"
#include "apps/kestrel/terminal/Output.h"

#include <memory>
#include <string>

namespace kestrel {

/// What a clip is called in the store.
struct ClipKey {
    std::string mediaGuid;
    std::string projectGuid;
};

/// Transcribes clips with one engine.
class Transcriber {
public:
    /// @throws Failure when the engine is not to be had or does not know the language.
    Transcriber(EngineKind kind, Home home, std::string language);

    /// Reads the clip's sound to its end and returns its transcript, segments numbered from 0.
    /// @throws Failure with the engine's reason, Cancelled after an interrupt.
    KsNNDB_STTClipEntry transcribe(AudioReader& audio, const ClipKey& key, ProgressLine& progress);

    const std::string& language() const { return mLanguage; }

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
