#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/media/SpeechDetector.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A stretch of a clip that is transcribed in one go.
struct AudioPart {
    std::size_t start = 0; ///< First sample in the clip.
    std::vector<std::int16_t> samples;
    std::vector<SampleRange> voiced; ///< Where somebody speaks; positions in the clip.

    std::size_t end() const { return start + samples.size(); }
    /// Makes it begin there, if it begins before.
    void dropUpTo(std::size_t sample);
};

/// The audio of a clip, part by part, as the engines take it: the track in which somebody speaks, raised
/// where it is very quiet. Holds one part at a time.
class ClipAudio {
public:
    /// @param tracks Without a value, the track is chosen by listening.
    /// @throws Failure when the file is not media or has no such track, Cancelled.
    ClipAudio(const std::filesystem::path& file, std::optional<TrackChoice> tracks,
              const SpeechDetector& detector, const Callbacks& callbacks);

    /// The next part: at most `length` samples, cut where it is quiet; none at the end.
    /// @throws Cancelled
    std::optional<AudioPart> next(std::size_t length, const Callbacks& callbacks);
    /// Takes back the end of the last part, from a sample of the clip on: it comes again with the next one.
    void giveBack(AudioPart& part, std::size_t fromSample);

    const AudioReader& reader() const { return mReader; }
    /// Length that the file claims, in samples; 0 when it does not say.
    double claimedSamples() const { return mReader.claimedDuration() * kSampleRate; }
    /// Where somebody spoke in the parts so far.
    const std::vector<SampleRange>& voiced() const { return mVoiced; }
    /// Samples read so far.
    std::size_t position() const { return mPosition; }
    /// What listeners should know: the choice of track, raised audio, what could not be read.
    std::vector<std::string> warnings() const;

private:
    void fill(std::size_t count, const Callbacks& callbacks);

    const SpeechDetector& mDetector;
    std::string mTrackNote;
    AudioReader mReader;
    std::vector<float> mAhead; ///< Read, but in no part yet.
    std::size_t mPosition = 0;
    std::vector<SampleRange> mVoiced;
    double mRaised = 0.0;
};

/// Where somebody speaks and no word was recognised near: (begin, end) in milliseconds, pauses left out of
/// the sum.
struct UnrecognisedSpeech {
    std::int64_t begin = 0;
    std::int64_t spoken = 0;
};
/// @param words Start and end of each word in milliseconds, in order of starts.
std::vector<UnrecognisedSpeech> unrecognisedSpeech(const std::vector<SampleRange>& voiced,
                                                   const std::vector<std::pair<int, int>>& words);

} // namespace kestrel
