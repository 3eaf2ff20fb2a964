#include "kestrelml/stt/KsNNSpeechToTextWav2Vec2ONNX.h"

#include "kestrelml/platform/Paths.h"
#include "kestrelml/stt/DebugDump.h"
#include "kestrelml/stt/ctc/AcousticModel.h"
#include "kestrelml/stt/ctc/GreedyDecoder.h"
#include "kestrelml/stt/ctc/LanguageTable.h"

#include <cmath>
#include <limits>

namespace {

using namespace kestrelml;

constexpr std::size_t kFrameSamples = 320; // 20 ms
constexpr float kSmallestDeviation = 1e-6F;

std::size_t roundedUpToFrames(std::size_t samples) {
    const std::size_t rest = samples % kFrameSamples;
    return rest == 0 ? samples : samples + kFrameSamples - rest;
}

/// Frames for which the model sees all the samples it needs.
std::size_t framesOf(std::size_t samples) {
    return samples / kFrameSamples - 1;
}

/// @throws std::invalid_argument unless the engine can work with these sizes.
void requireSizes(std::size_t chunkSamples, std::size_t overlapSamples, std::size_t batchCount) {
    const auto fail = [&](const std::string& what) {
        throw std::invalid_argument("chunks of " + std::to_string(chunkSamples) +
                                    " samples with an overlap of " + std::to_string(overlapSamples) + ", " +
                                    std::to_string(batchCount) + " at once: " + what);
    };
    constexpr std::size_t kLargest = std::numeric_limits<std::int32_t>::max() - kFrameSamples;
    if (chunkSamples > kLargest || overlapSamples > kLargest) fail("too many samples");
    if (batchCount == 0) fail("at least one chunk is needed");
    if (overlapSamples == 0) fail("an overlap is needed");
    if (roundedUpToFrames(overlapSamples) >= roundedUpToFrames(chunkSamples))
        fail("the overlap must be shorter than a chunk");
    if (batchCount >
        std::numeric_limits<std::size_t>::max() / sizeof(float) / roundedUpToFrames(chunkSamples))
        fail("too many chunks");
}

const char* wordDelimiterOf(const std::string& language) {
    return language == "Arabic" ? "/" : "|";
}

const std::string& setting(const std::map<std::string, std::string>& settings, const char* name,
                           const std::string& language) {
    const auto found = settings.find(name);
    if (found == settings.end())
        throw std::runtime_error("the language table has no setting \"" + std::string(name) + "\" for \"" +
                                 language + "\"");
    return found->second;
}

/// Brings the samples to zero mean and unit variance; a constant signal stays as it is.
void standardise(float* samples, std::size_t count) {
    const auto size = static_cast<float>(count);
    float sum = 0.0F;
    for (std::size_t i = 0; i < count; ++i)
        sum += samples[i];
    const float mean = sum / size;
    float squares = 0.0F;
    for (std::size_t i = 0; i < count; ++i) {
        const double distance = samples[i] - mean;
        squares = static_cast<float>(squares + distance * distance);
    }
    const float deviation = std::sqrt(squares / size);
    if (!(deviation > kSmallestDeviation)) return;
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = (samples[i] - mean) / deviation;
}

/// `current` fades in over `previous`.
void blend(const float* previous, float* current, std::size_t frames, std::size_t tokens) {
    for (std::size_t k = 1; k <= frames; ++k) {
        const float weight = static_cast<float>(k) / static_cast<float>(frames + 1);
        for (std::size_t i = 0; i < tokens; ++i, ++previous, ++current)
            *current = (1.0F - weight) * *previous + weight * *current;
    }
}

void dumpSamples(const std::string& name, const float* samples, std::size_t count) {
    stt::dumpFile(name, {reinterpret_cast<const char*>(samples), count * sizeof(float)});
}

void dumpTokens(const std::vector<std::int32_t>& frameTokens,
                const std::vector<stt::CondensedToken>& condensed) {
    std::string text;
    for (const std::int32_t id : frameTokens)
        text += std::to_string(id) + '\n';
    stt::dumpFile("KsNNCtcFrameTokens.txt", text);
    text.clear();
    for (const stt::CondensedToken& each : condensed)
        text += std::to_string(each.id) + ", " + std::to_string(each.timeMs) + '\n';
    stt::dumpFile("KsNNCtcCondensed.txt", text);
}

void dumpWordTimes(const std::vector<int>& starts, const std::vector<int>& ends) {
    std::string text;
    for (std::size_t i = 0; i < starts.size(); ++i)
        text += std::to_string(starts[i]) +
                (i < ends.size() ? ", " + std::to_string(ends[i]) : ", No End Time") + '\n';
    stt::dumpFile("KsNNCtcWordTimes.txt", text);
}

/// Does something at the end of a scope, also when an exception leaves it, unless it was dismissed.
template <typename Action>
class Finally {
public:
    explicit Finally(Action action) : mAction(action) {}
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;
    ~Finally() {
        if (mArmed) mAction();
    }
    void dismiss() { mArmed = false; }

private:
    Action mAction;
    bool mArmed = true;
};

} // namespace

KsNNSpeechToTextWav2Vec2ONNX::KsNNSpeechToTextWav2Vec2ONNX(std::size_t chunkSamples,
                                                           std::size_t overlapSamples, std::size_t batchCount)
    : mOverlapSamples(
          (requireSizes(chunkSamples, overlapSamples, batchCount), roundedUpToFrames(overlapSamples))),
      mOverlapFrames(framesOf(mOverlapSamples)), mChunkSamples(roundedUpToFrames(chunkSamples)),
      mChunkFrames(framesOf(mChunkSamples)), mBatchCount(batchCount),
      mLanguageTable(stt::readLanguageTable(stt::languageTablePath())),
      mAudioBatch(mChunkSamples * batchCount), mOverlapAudio(mOverlapSamples) {
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::setLanguage(std::string language) {
    const auto found = mLanguageTable.find(language);
    if (found == mLanguageTable.end()) return KsNN_Error;
    if (language == mLanguage) return KsNN_Success;

    // All that can fail comes before the first change.
    const std::filesystem::path folder = stt::languageTablePath().parent_path();
    const auto file = [&](const char* name) {
        return folder / platform::pathFromUtf8(setting(found->second, name, language));
    };
    stt::Vocabulary vocabulary = stt::readVocabulary(file("vocab"), wordDelimiterOf(language));
    auto model = std::make_shared<stt::AcousticModel>(file("onnxModel"));
    const std::size_t size = vocabulary.ids.size();
    std::vector<float> frameScores(mBatchCount * mChunkFrames * size);
    std::vector<float> overlapScores(mOverlapFrames * size);

    mDumpCounter = 0;
    mLanguage = std::move(language);
    mTokenToId = std::move(vocabulary.ids);
    mIdToToken = std::move(vocabulary.tokens);
    mVocabularySize = size;
    mFrameTokens.clear();
    mFrameScores = std::move(frameScores);
    mOverlapScores = std::move(overlapScores);
    mChunkIndex = 0;
    mOverlapScoresValid = false;
    mModel = std::move(model);
    return KsNN_Success;
}

std::string KsNNSpeechToTextWav2Vec2ONNX::getLanguage() const {
    return mLanguage;
}

void KsNNSpeechToTextWav2Vec2ONNX::getLanguageList(std::vector<std::string>& names) const {
    for (const auto& [language, settings] : mLanguageTable)
        names.push_back(language);
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::ProcessAudio(const short* samples, std::size_t count,
                                                          bool bufferOnly, bool debug) {
    if (debug) stt::dumpAudio(samples, count);
    return feed(samples, count, bufferOnly, debug);
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::ProcessAudio(const float* samples, std::size_t count,
                                                          bool bufferOnly, bool debug) {
    return feed(samples, count, bufferOnly, debug);
}

template <typename Sample>
KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::feed(const Sample* samples, std::size_t count, bool bufferOnly,
                                                  bool debug) {
    Finally endClip([this] { resetClip(); });
    while (count > 0) {
        const std::size_t taken = std::min(count, mChunkSamples - mChunkFill);
        std::copy_n(samples, taken, slot(mChunkIndex) + mChunkFill);
        samples += taken;
        count -= taken;
        mChunkFill += taken;
        if (mChunkFill < mChunkSamples) break;
        if (completeChunk(bufferOnly, debug) != KsNN_Success) return KsNN_Error;
    }
    endClip.dismiss();
    return KsNN_Success;
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::completeChunk(bool bufferOnly, bool debug) {
    float* const chunk = slot(mChunkIndex);
    std::copy_n(chunk + mChunkSamples - mOverlapSamples, mOverlapSamples, mOverlapAudio.begin());
    if (!bufferOnly) {
        if (debug) dumpSamples("KsNNCtcBeforeStandardising.raw", chunk, mChunkSamples);
        standardise(chunk, mChunkSamples);
        if (debug) dumpSamples("KsNNCtcAfterStandardising.raw", chunk, mChunkSamples);
    }
    if (++mChunkIndex == mBatchCount) {
        if (!bufferOnly && runBatch(0, mBatchCount, mChunkSamples, debug) != KsNN_Success) return KsNN_Error;
        mChunkIndex = 0;
    }
    std::copy(mOverlapAudio.begin(), mOverlapAudio.end(), slot(mChunkIndex));
    mChunkFill = mOverlapSamples;
    return KsNN_Success;
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::runBatch(std::size_t firstSlot, std::size_t count,
                                                      std::size_t samples, bool debug) {
    samples = roundedUpToFrames(samples);
    if (!mModel || samples < kFrameSamples || samples > mChunkSamples) return KsNN_Error;
    const std::size_t frames = framesOf(samples);
    for (std::size_t chunk = 0; chunk < count; ++chunk) {
        float* const audio = slot(firstSlot + chunk);
        if (debug) dumpSamples("KsNNCtcChunk-" + std::to_string(mDumpCounter++) + ".raw", audio, samples);
        // The samples of one frame are fewer than a model's first window, and give no scores.
        if (frames > 0)
            mModel->run(audio, samples, scoresOfFrame(chunk * mChunkFrames), frames, mVocabularySize);
    }
    const std::size_t emitted = frames == mChunkFrames ? frames - mOverlapFrames : frames;
    for (std::size_t chunk = 0; chunk < count; ++chunk) {
        crossFade(chunk, frames);
        emitTokens(scoresOfFrame(chunk * frames), emitted);
    }
    return KsNN_Success;
}

void KsNNSpeechToTextWav2Vec2ONNX::crossFade(std::size_t chunk, std::size_t frames) {
    float* const begin = scoresOfFrame(chunk * frames);
    if (chunk > 0) {
        blend(begin - mOverlapFrames * mVocabularySize, begin, mOverlapFrames, mVocabularySize);
    } else if (mOverlapScoresValid) {
        blend(mOverlapScores.data(), begin, mOverlapFrames, mVocabularySize);
        mOverlapScoresValid = false;
    }
    if (chunk + 1 == mBatchCount) {
        mOverlapScoresValid = frames > mOverlapFrames;
        if (mOverlapScoresValid)
            std::copy_n(begin + (frames - mOverlapFrames) * mVocabularySize, mOverlapScores.size(),
                        mOverlapScores.begin());
    }
}

void KsNNSpeechToTextWav2Vec2ONNX::emitTokens(const float* scores, std::size_t frames) {
    for (; frames > 0; --frames, scores += mVocabularySize) {
        std::size_t best = 0;
        for (std::size_t id = 1; id < mVocabularySize; ++id)
            if (scores[id] >= scores[best]) best = id; // of equal ones, the last
        mFrameTokens.push_back(static_cast<std::int32_t>(best));
    }
}

/// Runs what is left in the buffers.
KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::flush(bool debug) {
    if (mChunkFill > 0) {
        float* const chunk = slot(mChunkIndex);
        const std::size_t filled = roundedUpToFrames(mChunkFill);
        std::fill(chunk + mChunkFill, chunk + filled, 0.0F);
        mChunkFill = filled;
        standardise(chunk, filled);
    }
    if (mChunkIndex > 0 && runBatch(0, mChunkIndex, mChunkSamples, debug) != KsNN_Success) return KsNN_Error;
    if (mChunkFill > 0 && runBatch(mChunkIndex, 1, mChunkFill, debug) != KsNN_Success) return KsNN_Error;
    if (mOverlapScoresValid) emitTokens(mOverlapScores.data(), mOverlapFrames);
    return KsNN_Success;
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::FinalizeTranscript(std::string& text,
                                                                std::vector<int>& wordStartsMS,
                                                                std::vector<int>& wordEndsMS,
                                                                std::size_t paddingSamples, bool debug) {
    const Finally endClip([this] { resetClip(); });
    const std::vector<float> silence(std::min(paddingSamples, mChunkSamples));
    for (std::size_t left = paddingSamples; left > 0;) {
        const std::size_t fed = std::min(left, silence.size());
        if (ProcessAudio(silence.data(), fed, false, debug) != KsNN_Success) return KsNN_Error;
        left -= fed;
    }
    if (flush(debug) != KsNN_Success) return KsNN_Error;

    text.clear();
    if (mFrameTokens.empty()) return KsNN_Success;
    const stt::SpecialTokens special{mTokenToId.at("<pad>"), mTokenToId.at("<unk>"),
                                     mTokenToId.at(wordDelimiterOf(mLanguage))};
    const std::vector<stt::CondensedToken> condensed = stt::condense(mFrameTokens, special);
    if (debug) dumpTokens(mFrameTokens, condensed);
    const std::size_t firstStart = wordStartsMS.size();
    const std::size_t firstEnd = wordEndsMS.size();
    text = trim(stt::translate(condensed, special, mIdToToken, wordStartsMS, wordEndsMS));
    if (debug)
        dumpWordTimes({wordStartsMS.begin() + static_cast<std::ptrdiff_t>(firstStart), wordStartsMS.end()},
                      {wordEndsMS.begin() + static_cast<std::ptrdiff_t>(firstEnd), wordEndsMS.end()});
    return KsNN_Success;
}

void KsNNSpeechToTextWav2Vec2ONNX::resetClip() {
    mChunkIndex = 0;
    mChunkFill = 0;
    mOverlapScoresValid = false;
    mFrameTokens.clear();
}

KsNN_ErrorCode KsNNSpeechToTextWav2Vec2ONNX::debugInternals() {
    constexpr std::size_t kPeriod = 32767;
    const std::size_t stride = mChunkSamples - mOverlapSamples;
    const std::size_t count = (mBatchCount - 1) * stride + mOverlapSamples;
    std::vector<short> ramp(count);
    for (std::size_t i = 0; i < count; ++i)
        ramp[i] = static_cast<short>(i % kPeriod);
    if (ProcessAudio(ramp.data(), count, true, false) != KsNN_Success) return KsNN_Error;

    if (mChunkIndex != mBatchCount - 1 || mChunkFill != mOverlapSamples) return KsNN_Error;
    for (std::size_t chunk = 0; chunk + 1 < mBatchCount; ++chunk)
        for (std::size_t i = 0; i < mChunkSamples; ++i) {
            const auto expected = static_cast<float>((stride * chunk + i) % kPeriod);
            if (std::abs(slot(chunk)[i] - expected) > 0.001F) return KsNN_Error;
        }
    return KsNN_Success;
}

std::string KsNNSpeechToTextWav2Vec2ONNX::trim(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1); // npos + 1 is 0: nothing but spaces
    text.erase(0, text.find_first_not_of(' '));
    return text;
}
