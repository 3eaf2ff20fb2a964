#include "apps/kestrel/clips/ClipAudio.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/media/Level.h"
#include "apps/kestrel/media/QuietPoint.h"
#include "apps/kestrel/media/TrackSurvey.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

constexpr std::size_t kReadSamples = std::size_t{30} * kSampleRate;
/// The end of a part in which the place for the cut is looked for.
constexpr std::size_t kCutSearch = std::size_t{30} * kSampleRate;
constexpr double kMissingSeconds = 2.0; ///< What a file may lack of its claimed length without a word.

constexpr std::int64_t kNearWordMs = 1000;
constexpr std::int64_t kShortestReportMs = 3000;
constexpr std::int64_t kSameReportMs = 5000;

TrackChoice trackOf(const std::filesystem::path& file, const std::optional<TrackChoice>& wanted,
                    const SpeechDetector& detector, const Callbacks& callbacks, std::string& note) {
    if (wanted) return *wanted;
    SpokenTrack found = findSpokenTrack(file, detector, callbacks);
    note = std::move(found.note);
    return found.choice;
}

std::int16_t toPcm(float sample) {
    return static_cast<std::int16_t>(std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767.0F));
}

std::int64_t toMs(std::size_t sample) {
    return static_cast<std::int64_t>(sample) * 1000 / kSampleRate;
}

} // namespace

void AudioPart::dropUpTo(std::size_t sample) {
    if (sample <= start) return;
    const std::size_t count = std::min(sample - start, samples.size());
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(count));
    start += count;
    std::erase_if(voiced, [&](const SampleRange& one) { return one.end <= start; });
    if (!voiced.empty()) voiced.front().begin = std::max(voiced.front().begin, start);
}

ClipAudio::ClipAudio(const std::filesystem::path& file, std::optional<TrackChoice> tracks,
                     const SpeechDetector& detector, const Callbacks& callbacks)
    : mDetector(detector), mReader(file, trackOf(file, tracks, detector, callbacks, mTrackNote)) {
}

void ClipAudio::fill(std::size_t count, const Callbacks& callbacks) {
    while (mAhead.size() < count) {
        callbacks.throwIfCancelled();
        const std::vector<float> more = mReader.read(kReadSamples);
        if (more.empty()) return;
        mAhead.insert(mAhead.end(), more.begin(), more.end());
        if (claimedSamples() > 0)
            callbacks.report("reading", static_cast<double>(mPosition + mAhead.size()) / claimedSamples());
    }
}

std::optional<AudioPart> ClipAudio::next(std::size_t length, const Callbacks& callbacks) {
    fill(length + 1, callbacks);
    if (mAhead.empty()) return std::nullopt;
    std::size_t count = mAhead.size();
    if (count > length) {
        const std::size_t search = std::min(kCutSearch, length / 2);
        const auto last = std::span(mAhead).subspan(length - search, search);
        count = length - search + quietestPoint(last);
    }
    std::vector<float> samples(mAhead.begin(), mAhead.begin() + static_cast<std::ptrdiff_t>(count));
    mAhead.erase(mAhead.begin(), mAhead.begin() + static_cast<std::ptrdiff_t>(count));

    AudioPart part;
    part.start = mPosition;
    const double decibels = raiseFor(loudLevel(samples));
    if (decibels > 0.0) {
        std::vector<float> raised = samples;
        raise(raised, decibels);
        part.voiced = mDetector.find(raised);
        if (!part.voiced.empty()) { // else it is noise, and the recogniser need not hear it louder
            samples = std::move(raised);
            mRaised = std::max(mRaised, decibels);
        }
    } else {
        part.voiced = mDetector.find(samples);
    }
    for (SampleRange& stretch : part.voiced) {
        stretch.begin += part.start;
        stretch.end += part.start;
    }
    std::transform(samples.begin(), samples.end(), std::back_inserter(part.samples), toPcm);
    mPosition = part.end();
    mVoiced.insert(mVoiced.end(), part.voiced.begin(), part.voiced.end());
    return part;
}

void ClipAudio::giveBack(AudioPart& part, std::size_t fromSample) {
    const auto from = part.samples.begin() + static_cast<std::ptrdiff_t>(fromSample - part.start);
    std::vector<float> back;
    std::transform(from, part.samples.end(), std::back_inserter(back),
                   [](std::int16_t sample) { return static_cast<float>(sample) / 32767.0F; });
    mAhead.insert(mAhead.begin(), back.begin(), back.end());
    part.samples.erase(from, part.samples.end());
    mPosition = part.end();
    for (std::vector<SampleRange>* const stretches : {&part.voiced, &mVoiced}) {
        std::erase_if(*stretches, [&](const SampleRange& one) { return one.begin >= fromSample; });
        if (!stretches->empty()) stretches->back().end = std::min(stretches->back().end, fromSample);
    }
}

std::vector<std::string> ClipAudio::warnings() const {
    std::vector<std::string> all;
    if (!mTrackNote.empty()) all.push_back(mTrackNote);
    if (mRaised > 0.0) all.push_back(fmt::format("very quiet audio was raised by {:.0f} dB", mRaised));
    const double read = std::max(mReader.readDuration(), static_cast<double>(mPosition) / kSampleRate);
    if (mReader.isDurationKnown() && mReader.claimedDuration() - read > kMissingSeconds)
        all.push_back(fmt::format("only {:.0f} of {:.0f} s could be read: the file is cut short or damaged",
                                  read, mReader.claimedDuration()));
    if (mReader.damagedPieces() > 0)
        all.push_back(fmt::format("{} damaged {} of the file left out", mReader.damagedPieces(),
                                  mReader.damagedPieces() == 1 ? "piece was" : "pieces were"));
    return all;
}

std::vector<UnrecognisedSpeech> unrecognisedSpeech(const std::vector<SampleRange>& voiced,
                                                   const std::vector<std::pair<int, int>>& words) {
    std::vector<UnrecognisedSpeech> found;
    std::int64_t lastEnd = 0;
    auto word = words.begin();
    for (const SampleRange& stretch : voiced) {
        const std::int64_t end = toMs(stretch.end);
        for (std::int64_t begin = toMs(stretch.begin); begin < end;) {
            while (word != words.end() && word->second + kNearWordMs <= begin)
                ++word;
            const bool isCovered = word != words.end() && word->first - kNearWordMs <= begin;
            const std::int64_t next = isCovered ? word->second + kNearWordMs
                                      : word != words.end()
                                          ? std::min<std::int64_t>(end, word->first - kNearWordMs)
                                          : end;
            if (!isCovered) {
                if (found.empty() || begin - lastEnd > kSameReportMs) found.push_back({begin, 0});
                found.back().spoken += next - begin;
                lastEnd = next;
            }
            begin = next;
        }
    }
    std::erase_if(found, [](const UnrecognisedSpeech& one) { return one.spoken < kShortestReportMs; });
    return found;
}

} // namespace kestrel
