#include "apps/kestrel/media/TrackSurvey.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/media/Level.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

namespace kestrel {

namespace {

constexpr std::size_t kBlock = std::size_t{60} * kSampleRate;
/// So much speech in one track ends the search.
constexpr std::size_t kEnoughSpeech = std::size_t{20} * kSampleRate;
constexpr std::size_t kLeastSpeech = kSampleRate;
constexpr double kClearlyMore = 1.5;

struct Track {
    unsigned number = 0;
    std::unique_ptr<AudioReader> reader; ///< None when the track cannot be decoded.
    std::size_t speech = 0;
};

std::vector<Track> openTracks(const std::filesystem::path& file, unsigned count) {
    std::vector<Track> tracks;
    for (unsigned number = 1; number <= count; ++number) {
        Track track;
        track.number = number;
        try {
            track.reader = std::make_unique<AudioReader>(file, TrackChoice{TrackChoice::Kind::One, number});
        } catch (const Failure&) { // another one may do
        }
        tracks.push_back(std::move(track));
    }
    return tracks;
}

/// Listens to the next minute of a track; returns whether there was any.
bool listen(Track& track, const SpeechDetector& detector) {
    if (!track.reader) return false;
    std::vector<float> samples = track.reader->read(kBlock);
    if (samples.empty()) return false;
    raise(samples, raiseFor(loudLevel(samples)));
    track.speech += lengthOf(detector.find(samples));
    return true;
}

std::size_t mostSpeech(const std::vector<Track>& tracks) {
    return std::max_element(tracks.begin(), tracks.end(),
                            [](const Track& a, const Track& b) { return a.speech < b.speech; })
        ->speech;
}

std::string noteOn(const Track& chosen, const std::vector<Track>& tracks) {
    std::vector<unsigned> spoken;
    for (const Track& track : tracks) {
        if (track.number != chosen.number && track.speech >= kLeastSpeech) spoken.push_back(track.number);
    }
    if (spoken.empty())
        return fmt::format("audio track {} of {} is transcribed: nobody speaks in the others", chosen.number,
                           tracks.size());
    return fmt::format("audio track {} of {} is transcribed; somebody speaks in {} too: choose with --track, "
                       "or mix with --track all",
                       chosen.number, tracks.size(), fmt::join(spoken, ", "));
}

} // namespace

SpokenTrack findSpokenTrack(const std::filesystem::path& file, const SpeechDetector& detector,
                            const Callbacks& callbacks) {
    const AudioReader preferred(file);
    if (preferred.trackCount() < 2) return {};
    std::vector<Track> tracks = openTracks(file, preferred.trackCount());
    for (bool goesOn = true; goesOn && mostSpeech(tracks) < kEnoughSpeech;) {
        goesOn = false;
        for (Track& track : tracks) {
            callbacks.throwIfCancelled();
            goesOn = listen(track, detector) || goesOn;
        }
    }
    const std::size_t most = mostSpeech(tracks);
    if (most < kLeastSpeech) return {};
    const auto isAsGood = [&](const Track& track) {
        return static_cast<double>(most) < kClearlyMore * static_cast<double>(track.speech);
    };
    const auto best = std::find_if(tracks.begin(), tracks.end(), [&](const Track& track) {
        return track.number == preferred.firstTrack() && isAsGood(track);
    });
    const auto chosen =
        best != tracks.end()
            ? best
            : std::max_element(tracks.begin(), tracks.end(),
                               [](const Track& a, const Track& b) { return a.speech < b.speech; });
    return {TrackChoice{TrackChoice::Kind::One, chosen->number}, noteOn(*chosen, tracks)};
}

} // namespace kestrel
