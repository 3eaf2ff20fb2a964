#include "apps/kestrel/clips/VoiceReel.h"

#include "apps/kestrel/clips/Transcript.h"

#include <algorithm>
#include <charconv>

namespace kestrel {

namespace {

constexpr std::size_t kVoiceSamples = std::size_t{8} * kSampleRate;
constexpr std::size_t kLeastSamples = std::size_t{2} * kSampleRate; ///< Less says too little about a voice.
constexpr std::size_t kMostVoices = 8;
/// Longer than the pauses that engines bridge, so that no phrase runs from one excerpt into the next.
constexpr std::int64_t kPauseSamples = std::int64_t{3} * kSampleRate;

std::size_t toSample(std::int32_t ms, std::size_t limit) {
    return std::min(static_cast<std::size_t>(std::max(ms, 0)) * kSampleRate / 1000, limit);
}

int numberOf(const std::string& label) {
    int number = 0;
    std::from_chars(label.data(), label.data() + label.size(), number);
    return number;
}

} // namespace

void VoiceReel::relabel(KsNNDB_STTClipEntry& entry) {
    std::map<std::string, std::string> labels = labelsFor(entry);
    const auto reelMs = static_cast<std::int32_t>(mSamples.size() * 1000 / kSampleRate);
    std::erase_if(entry.segments, [&](const KsNNDBEntrySeg& segment) {
        return !segment.wordStartsMS.empty() && startOf(segment) < reelMs;
    });
    for (KsNNDBEntrySeg& segment : entry.segments) {
        if (segment.wordStartsMS.empty()) continue;
        for (auto* const times : {&segment.wordStartsMS, &segment.wordEndsMS})
            std::for_each(times->begin(), times->end(), [&](std::int32_t& time) { time -= reelMs; });
        const auto [label, isNew] = labels.try_emplace(segment.speakerID);
        if (isNew) label->second = std::to_string(++mSpeakers);
        segment.speakerID = label->second;
    }
}

/// The clip's label for each of the engine's, as far as the excerpts tell.
std::map<std::string, std::string> VoiceReel::labelsFor(const KsNNDB_STTClipEntry& entry) {
    std::map<std::string, std::string> labels;
    for (const Excerpt& excerpt : mExcerpts) {
        std::map<std::string, std::int64_t> heard;
        for (const KsNNDBEntrySeg& segment : entry.segments) {
            if (segment.wordStartsMS.empty()) continue;
            const auto middle =
                static_cast<std::int64_t>(toSample((startOf(segment) + endOf(segment)) / 2, mSamples.size()));
            // Engines hear a word begin a little before it does.
            if (middle >= static_cast<std::int64_t>(excerpt.begin) - kPauseSamples / 2 &&
                middle < static_cast<std::int64_t>(excerpt.end) + kPauseSamples / 2)
                heard[segment.speakerID] += endOf(segment) - startOf(segment);
        }
        const auto most = std::max_element(heard.begin(), heard.end(),
                                           [](const auto& a, const auto& b) { return a.second < b.second; });
        // Where the engine takes two voices for one, the one that is better known keeps its label.
        if (most != heard.end()) labels.try_emplace(most->first, excerpt.speaker);
    }
    return labels;
}

void VoiceReel::learn(const KsNNDB_STTClipEntry& entry, const std::vector<std::int16_t>& samples) {
    std::vector<const KsNNDBEntrySeg*> longestFirst;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        mSpeakers = std::max(mSpeakers, numberOf(segment.speakerID));
        if (!segment.wordStartsMS.empty()) longestFirst.push_back(&segment);
    }
    std::stable_sort(longestFirst.begin(), longestFirst.end(), [](const auto* a, const auto* b) {
        return endOf(*a) - startOf(*a) > endOf(*b) - startOf(*b);
    });
    for (const KsNNDBEntrySeg* const segment : longestFirst) {
        std::vector<std::int16_t>& voice = mVoices[segment->speakerID];
        const std::size_t begin = toSample(startOf(*segment), samples.size());
        const std::size_t end = toSample(endOf(*segment), samples.size());
        const std::size_t count = std::min(end - std::min(begin, end), kVoiceSamples - voice.size());
        const auto first = samples.begin() + static_cast<std::ptrdiff_t>(begin);
        voice.insert(voice.end(), first, first + static_cast<std::ptrdiff_t>(count));
    }
    build();
}

void VoiceReel::build() {
    std::vector<std::pair<std::string, const std::vector<std::int16_t>*>> voices;
    for (const auto& [speaker, voice] : mVoices) {
        if (voice.size() >= kLeastSamples) voices.emplace_back(speaker, &voice);
    }
    std::stable_sort(voices.begin(), voices.end(),
                     [](const auto& a, const auto& b) { return a.second->size() > b.second->size(); });
    voices.resize(std::min(voices.size(), kMostVoices));
    mSamples.clear();
    mExcerpts.clear();
    for (const auto& [speaker, voice] : voices) {
        mExcerpts.push_back({mSamples.size(), mSamples.size() + voice->size(), speaker});
        mSamples.insert(mSamples.end(), voice->begin(), voice->end());
        mSamples.resize(mSamples.size() + static_cast<std::size_t>(kPauseSamples), 0);
    }
}

} // namespace kestrel
