#include "apps/kestrel/clips/CtcTranscriber.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/Transcript.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <sstream>

namespace kestrel {

namespace {

// Chunks of ten seconds that share a fifth of a second, four at a time.
constexpr std::size_t kChunkSamples = std::size_t{10} * kSampleRate;
constexpr std::size_t kOverlapSamples = kSampleRate / 5;
constexpr std::size_t kChunksAtOnce = 4;
constexpr std::size_t kReadSamples = std::size_t{5} * kSampleRate;
/// Silence appended to the clip, in which its last word ends; longer than the overlap, so that the engine
/// leaves out silence only.
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

KsNNDB_STTClipEntry CtcTranscriber::transcribe(ClipAudio& audio, const ClipKey& key,
                                               const StoredBefore& stored, const PartSink& done,
                                               const Callbacks& callbacks) {
    KsNNDB_STTClipEntry whole;
    whole.model = "CTC";
    whole.audioTracks = audio.reader().trackDescription();
    whole.segments = stored;
    const std::int32_t resumeAt = stored.empty() ? 0 : endOf(stored.back());
    while (std::optional<AudioPart> part = audio.next(partSamples(), callbacks)) {
        const auto startMs = static_cast<std::int32_t>(part->start * 1000 / kSampleRate);
        const auto endMs = static_cast<std::int32_t>(part->end() * 1000 / kSampleRate);
        if (endMs <= resumeAt) continue;
        KsNNDB_STTClipEntry placed = whole;
        placed.segments = segmentsOfPart(*part, audio, callbacks);
        for (KsNNDBEntrySeg& segment : placed.segments) {
            for (auto* const times : {&segment.wordStartsMS, &segment.wordEndsMS})
                std::for_each(times->begin(), times->end(), [&](std::int32_t& time) { time += startMs; });
        }
        std::erase_if(placed.segments, [&](const KsNNDBEntrySeg& segment) {
            return segment.wordStartsMS.empty() || startOf(segment) < resumeAt;
        });
        append(placed, whole, key);
        if (!placed.segments.empty()) done(placed);
    }
    if (audio.position() == 0) throw Failure("has an audio track, but nothing in it could be decoded");
    if (whole.segments.empty()) {
        KsNNDB_STTClipEntry nothing = whole;
        nothing.segments = segmentsOf("", {}, {}, 0);
        append(nothing, whole, key);
        done(nothing);
    }
    return whole;
}

/// Numbers and names the segments, and appends them to the clip.
void CtcTranscriber::append(KsNNDB_STTClipEntry& part, KsNNDB_STTClipEntry& whole, const ClipKey& key) const {
    for (KsNNDBEntrySeg& segment : part.segments) {
        segment.segment = static_cast<std::int32_t>(whole.segments.size());
        segment.mediaGuid = key.mediaGuid;
        segment.projectGuid = key.projectGuid;
        segment.language = mEngine.getLanguage();
        segment.speakerID = "1";
        whole.segments.push_back(segment);
    }
}

std::vector<KsNNDBEntrySeg> CtcTranscriber::segmentsOfPart(const AudioPart& part, const ClipAudio& audio,
                                                           const Callbacks& callbacks) {
    KsNNSpeechToTextWav2Vec2ONNX engine = mEngine; // shares the model; a part cut short leaves nothing behind
    std::string text;
    std::vector<int> starts;
    std::vector<int> ends;
    for (std::size_t begin = 0; begin < part.samples.size(); begin += kReadSamples) {
        callbacks.throwIfCancelled();
        const std::size_t count = std::min(kReadSamples, part.samples.size() - begin);
        run([&] { return engine.ProcessAudio(part.samples.data() + begin, count, false, false); });
        if (audio.claimedSamples() > 0)
            callbacks.report("transcribing",
                             static_cast<double>(part.start + begin + count) / audio.claimedSamples());
    }
    run([&] { return engine.FinalizeTranscript(text, starts, ends, kPaddingSamples, false); });
    return segmentsOf(text, starts, ends, static_cast<int>(part.samples.size() * 1000 / kSampleRate));
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
