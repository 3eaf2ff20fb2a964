#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/home/Home.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Engine.h"
#include "kestrelml/core/KsNNBase.h"

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
    Transcriber() = default;
    Transcriber(const Transcriber&) = delete;
    Transcriber& operator=(const Transcriber&) = delete;
    virtual ~Transcriber() = default;

    /// Reads the clip's audio to its end and returns its transcript, segments numbered from 0.
    /// @throws Failure with the engine's reason, Cancelled.
    virtual KsNNDB_STTClipEntry transcribe(AudioReader& audio, const ClipKey& key,
                                           const Callbacks& callbacks) = 0;
};

/// @throws Failure when the engine is unavailable or does not know the language.
std::unique_ptr<Transcriber> makeTranscriber(EngineKind kind, const Home& home, const std::string& language);

} // namespace kestrel
