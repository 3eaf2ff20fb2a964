#pragma once

/// @file
/// Speech-to-text in this process by a CTC acoustic model, without Python.

#include "kestrelml/core/Export.h"
#include "kestrelml/core/KsNNBase.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kestrelml::stt {
class AcousticModel;
}

/// Transcribes mono audio of 16,000 samples per second, clip by clip: `setLanguage` once, `ProcessAudio` any
/// number of times, `FinalizeTranscript` at the end of the clip.
///
/// The audio is cut into chunks that overlap. Each is brought to zero mean and unit variance and run through
/// the model, which scores every token for each frame of 20 ms. Neighbouring chunks are cross-faded over
/// their overlap, and the best token of each frame is taken (greedy decoding of connectionist temporal
/// classification, Graves et al., 2006). Words begin and end where the model sees them, to 20 ms.
///
/// The models of all languages are described by the file "wav2vec2/Languages.json" in the folder that the
/// environment variable KESTREL_MODEL_DIR names, or else in "models" beside the host executable: a JSON
/// object of language names, each with the settings "onnxModel" and "vocab", paths of the model and of its
/// vocabulary. Those that are not absolute are relative to the table's folder. A vocabulary is a JSON object
/// that numbers the tokens from 0 and has "<pad>", "<unk>" and "|", the end of a word ("/" for the language
/// "Arabic"). A model takes samples {1, n} and returns scores {1, n / 320 - 1, tokens}, both 32-bit floats.
///
/// One object is used by one thread at a time; distinct objects are independent, also copies, which share the
/// loaded model. Failures of ONNX Runtime, in loading and in running a model, leave the operation as a
/// `std::exception` with the runtime's message. A failed `ProcessAudio` or `FinalizeTranscript` ends the
/// clip: the next call begins a new one.
class KSNN_API KsNNSpeechToTextWav2Vec2ONNX {
public:
    /// The sizes of chunk and overlap are rounded up to multiples of 320 samples. The overlap is 320 samples
    /// at least and shorter than a chunk.
    /// @param chunkSamples   Samples that the model sees at once, 160000 for instance.
    /// @param overlapSamples Samples that consecutive chunks share, 3200 for instance.
    /// @param batchCount     Chunks collected before the model runs. With a single one, the frames of
    ///                       the last overlap are decoded twice; take two or more.
    /// @throws std::invalid_argument for sizes that are not so.
    /// @throws std::runtime_error when the language table cannot be read.
    KsNNSpeechToTextWav2Vec2ONNX(std::size_t chunkSamples, std::size_t overlapSamples,
                                 std::size_t batchCount);

    /// Loads the model and the vocabulary of a language; does nothing when it is the current one.
    /// @return `KsNN_Success`, or `KsNN_Error` for a language that the table does not have.
    /// @throws std::runtime_error when the vocabulary cannot be read or lacks a token that is needed;
    /// std::exception when the model cannot be loaded. The current language stays in use then.
    KsNN_ErrorCode setLanguage(std::string language);
    /// Name of the current language; "None" until one is set.
    std::string getLanguage() const;
    /// Appends the names of the table's languages in ascending order.
    void getLanguageList(std::vector<std::string>& names) const;

    /// Feeds samples, which are copied.
    /// @param bufferOnly Only collect them, as `debugInternals` does: the model does not run.
    /// @param debug      Write debug files: the 16-bit samples, and what the model is given.
    /// @return `KsNN_Success`, or `KsNN_Error` when no language is set and a batch is full.
    KsNN_ErrorCode ProcessAudio(const short* samples, std::size_t count, bool bufferOnly, bool debug);
    KsNN_ErrorCode ProcessAudio(const float* samples, std::size_t count, bool bufferOnly, bool debug);

    /// Ends the clip and produces its transcript.
    /// @param text           Receives the words, separated by one space.
    /// @param wordStartsMS   The start of each word is appended, in milliseconds from the start of the clip.
    /// @param wordEndsMS     The end of each word is appended; a last word that the audio cuts off has none.
    /// @param paddingSamples Zero samples to feed first.
    /// @param debug          Write debug files: the tokens of the frames, their condensed form, the word
    /// times.
    /// @return `KsNN_Success`, or `KsNN_Error` when audio was fed and no language is set.
    KsNN_ErrorCode FinalizeTranscript(std::string& text, std::vector<int>& wordStartsMS,
                                      std::vector<int>& wordEndsMS, std::size_t paddingSamples, bool debug);

    /// Self-test of the chunking, for an object that was fed nothing. What it feeds stays in the buffers.
    /// @return `KsNN_Success`, or `KsNN_Error` when a sample is not where it belongs.
    KsNN_ErrorCode debugInternals();

    /// The text without spaces (U+0020) at both ends.
    static std::string trim(std::string text);

private:
    template <typename Sample>
    KsNN_ErrorCode feed(const Sample* samples, std::size_t count, bool bufferOnly, bool debug);
    KsNN_ErrorCode completeChunk(bool bufferOnly, bool debug);
    KsNN_ErrorCode flush(bool debug);
    KsNN_ErrorCode runBatch(std::size_t firstSlot, std::size_t count, std::size_t samples, bool debug);
    void crossFade(std::size_t chunk, std::size_t frames);
    void emitTokens(const float* scores, std::size_t frames);
    void resetClip();

    float* slot(std::size_t index) { return mAudioBatch.data() + index * mChunkSamples; }
    float* scoresOfFrame(std::size_t frame) { return mFrameScores.data() + frame * mVocabularySize; }

    std::size_t mOverlapSamples;
    std::size_t mOverlapFrames; ///< Frames of the overlap that the model sees whole.
    std::map<std::string, std::int32_t> mTokenToId;
    std::map<std::int32_t, std::string> mIdToToken;
    std::string mLanguage = "None";
    std::vector<float> mOverlapScores;      ///< Of the last overlap frames of the previous batch.
    std::vector<std::int32_t> mFrameTokens; ///< Best token of every frame of the clip.
    std::size_t mChunkSamples;
    std::size_t mVocabularySize = 0;
    std::size_t mChunkFrames;
    std::size_t mChunkIndex = 0; ///< Slot of the batch that is being filled.
    std::size_t mBatchCount;
    std::size_t mChunkFill = 0; ///< Samples in that slot.
    std::size_t mDumpCounter = 0;
    std::map<std::string, std::map<std::string, std::string>> mLanguageTable;
    std::vector<float> mFrameScores;  ///< batchCount x chunk frames x tokens.
    std::vector<float> mAudioBatch;   ///< batchCount slots of one chunk each.
    std::vector<float> mOverlapAudio; ///< Last samples of the last complete chunk, as they were fed.
    bool mOverlapScoresValid = false; ///< They have not been blended yet.
    std::shared_ptr<const kestrelml::stt::AcousticModel> mModel;
};
