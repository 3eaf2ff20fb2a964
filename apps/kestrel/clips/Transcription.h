#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/clips/ClipAudio.h"
#include "apps/kestrel/home/Home.h"
#include "apps/kestrel/services/Engine.h"
#include "kestrelml/core/KsNNBase.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

/// What a clip is called in the store.
struct ClipKey {
    std::string mediaGuid;
    std::string projectGuid;
};

/// The segments that an earlier, interrupted run has stored.
using StoredBefore = std::vector<KsNNDBEntrySeg>;

/// Takes the segments of a part as soon as they are done; fields of the clip are as they will stay.
using PartSink = std::function<void(const KsNNDB_STTClipEntry& part)>;

/// Transcribes clips with one engine.
class Transcriber {
public:
    Transcriber() = default;
    Transcriber(const Transcriber&) = delete;
    Transcriber& operator=(const Transcriber&) = delete;
    virtual ~Transcriber() = default;

    /// Reads the clip's audio to its end and returns its transcript, segments numbered from 0.
    /// @param stored What the clip has already: it stays, and the transcript continues behind it.
    /// @param done Gets each part's new segments; the last part's, too.
    /// @throws Failure with the engine's reason, Cancelled.
    virtual KsNNDB_STTClipEntry transcribe(ClipAudio& audio, const ClipKey& key, const StoredBefore& stored,
                                           const PartSink& done, const Callbacks& callbacks) = 0;

    /// What listeners should know about the last clip.
    const std::vector<std::string>& warnings() const { return mWarnings; }

protected:
    std::vector<std::string> mWarnings;
};

/// Samples that are transcribed in one go: ten minutes, or `$KESTREL_PART_MINUTES`.
/// @throws Failure when the variable holds no number above 0.
std::size_t partSamples();

/// What a run asks of the recogniser, where the engine has one to choose.
struct RecogniserChoice {
    std::string model; ///< Name; empty for the selected one.
    std::vector<std::string> terms;
};

/// @param language Empty: found from the speech, where the engine can.
/// @throws Failure when the engine is unavailable or does not know the language.
std::unique_ptr<Transcriber> makeTranscriber(EngineKind kind, const Home& home, const std::string& language,
                                             const RecogniserChoice& recogniser);

} // namespace kestrel
