#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Engine.h"

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
    /// @throws Failure when the engine is unavailable or does not know the language.
    Transcriber(EngineKind kind, Home home, std::string language);

    /// Reads the clip's audio to its end and returns its transcript, segments numbered from 0.
    /// @throws Failure with the engine's reason, Cancelled.
    KsNNDB_STTClipEntry transcribe(AudioReader& audio, const ClipKey& key, const Callbacks& callbacks);

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
