#include "apps/kestrel/clips/CtcTranscriber.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <sstream>

namespace kestrel {

namespace {

// Chunks of ten seconds that share a fifth of a second, four at a time.
constexpr std::size_t kChunkSamples = std::size_t{10} * kSampleRate;
constexpr std::size_t kOverlapSamples = kSampleRate / 5;
constexpr std::size_t kChunksAtOnce = 4;
constexpr std::size_t kReadSamples = std::size_t{5} * kSampleRate;
/// Silence behind the clip, in which its last word ends; longer than the overlap, so that whatever the engine
/// leaves out there is silence too.
constexpr std::size_t kPaddingSamples = kSampleRate;

constexpr int kPauseMs = 300;
constexpr std::size_t kLongestSegment = 25; // words

KsNNSpeechToTextWav2Vec2ONNX makeCtcEngine() {
    try {
        return {kChunkSamples, kOverlapSamples, kChunksAtOnce};
    } catch (const std::exception& e) {
        throw Failure(fmt::format("the CTC engine cannot start: {}; run scripts/setup, or set "
                                  "KESTREL_MODEL_DIR to the folder that holds wav2vec2/Languages.json",
                                  e.what()));
    }
}

/// @throws Failure when the engine fails.
template <typename Operation>
void run(Operation operation) {
    try {
        if (operation() == KsNN_Success) return;
    } catch (const std::exception& e) {
        throw Failure(fmt::format("the CTC engine failed: {}", e.what()));
    }
    throw Failure("the CTC engine failed");
}

} // namespace

CtcTranscriber::CtcTranscriber(std::string language) : mEngine(makeCtcEngine()) {
    KsNN_ErrorCode code = KsNN_Error;
    try {
        code = mEngine.setLanguage(language);
    } catch (const std::exception& e) {
        throw Failure(fmt::format("the language \"{}\" cannot be loaded: {}", language, e.what()));
    }
    if (code == KsNN_Success) return;
    std::vector<std::string> names;
    mEngine.getLanguageList(names);
    throw Failure(fmt::format("the CTC engine has no language \"{}\"; there are: \"{}\"", language,
                              fmt::join(names, "\", \"")));
}

KsNNDB_STTClipEntry CtcTranscriber::transcribe(AudioReader& audio, const ClipKey& key,
                                               const Callbacks& callbacks) {
    const double total = audio.claimedDuration() * kSampleRate;
    KsNNSpeechToTextWav2Vec2ONNX engine = mEngine; // shares the model; a clip cut short leaves nothing behind
    std::size_t heard = 0;
    std::string text;
    std::vector<int> starts;
    std::vector<int> ends;
    for (std::vector<std::int16_t> samples = audio.read(kReadSamples); !samples.empty();
         samples = audio.read(kReadSamples)) {
        callbacks.throwIfCancelled();
        run([&] { return engine.ProcessAudio(samples.data(), samples.size(), false, false); });
        heard += samples.size();
        if (total > 0) callbacks.report("transcribing", static_cast<double>(heard) / total);
    }
    if (heard == 0) throw Failure("has an audio track, but nothing in it could be decoded");
    run([&] { return engine.FinalizeTranscript(text, starts, ends, kPaddingSamples, false); });

    KsNNDB_STTClipEntry entry;
    entry.model = "CTC";
    entry.audioTracks = audio.trackDescription();
    entry.segments = segmentsOf(text, starts, ends, static_cast<int>(heard * 1000 / kSampleRate));
    std::int32_t number = 0;
    for (KsNNDBEntrySeg& segment : entry.segments) {
        segment.segment = number++;
        segment.mediaGuid = key.mediaGuid;
        segment.projectGuid = key.projectGuid;
        segment.language = mEngine.getLanguage();
        segment.speakerID = "1";
    }
    return entry;
}

std::vector<KsNNDBEntrySeg> segmentsOf(const std::string& text, const std::vector<int>& starts,
                                       std::vector<int> ends, int endMs) {
    ends.resize(starts.size(), endMs);
    std::vector<KsNNDBEntrySeg> segments(1);
    segments.back().transcript.clear();
    std::istringstream words(text);
    std::string word;
    for (std::size_t i = 0; i < starts.size() && words >> word; ++i) {
        const KsNNDBEntrySeg& last = segments.back();
        const std::size_t length = last.wordStartsMS.size();
        if (length > 0 && (length == kLongestSegment || starts[i] - last.wordEndsMS.back() >= kPauseMs)) {
            segments.emplace_back();
            segments.back().transcript.clear();
        }
        KsNNDBEntrySeg& segment = segments.back();
        segment.transcript += (segment.transcript.empty() ? "" : " ") + word;
        segment.wordStartsMS.push_back(std::min(starts[i], endMs));
        segment.wordEndsMS.push_back(std::min(ends[i], endMs));
    }
    return segments;
}

} // namespace kestrel
