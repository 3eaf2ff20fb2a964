#pragma once

#include "apps/kestrel/clips/Transcription.h"
#include "kestrelml/stt/KsNNSpeechToTextWav2Vec2ONNX.h"

namespace kestrel {

/// Transcribes in this process with a CTC acoustic model, which recognises words but no sentences or
/// speakers.
class CtcTranscriber final : public Transcriber {
public:
    /// @param language Name in the table of the CTC engine's languages.
    /// @throws Failure when there is no such language or its model cannot be used.
    explicit CtcTranscriber(std::string language);

    KsNNDB_STTClipEntry transcribe(ClipAudio& audio, const ClipKey& key, const StoredBefore& stored,
                                   const PartSink& done, const Callbacks& callbacks) override;

private:
    std::vector<KsNNDBEntrySeg> segmentsOfPart(const AudioPart& part, const ClipAudio& audio,
                                               const Callbacks& callbacks);
    void append(KsNNDB_STTClipEntry& part, KsNNDB_STTClipEntry& whole, const ClipKey& key) const;

    KsNNSpeechToTextWav2Vec2ONNX mEngine;
};

/// Cuts words into segments at pauses and at a length that a reader takes in at once.
/// @param text   Words with one space between them.
/// @param starts Start of each word in milliseconds.
/// @param ends   End of each word; a missing last one is `endMs`, and none lies behind it.
std::vector<KsNNDBEntrySeg> segmentsOf(const std::string& text, const std::vector<int>& starts,
                                       std::vector<int> ends, int endMs);

} // namespace kestrel
