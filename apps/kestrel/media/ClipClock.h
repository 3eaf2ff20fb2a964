#pragma once

#include "apps/kestrel/media/FrameRate.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace kestrel {

/// What an editing program has to know of a media file to find a moment of it again.
struct ClipClock {
    std::filesystem::path file; ///< Absolute; empty when nobody knows where it is.
    std::string reel;           ///< Tape or card name that the file carries; may be empty.
    FrameRate rate;
    std::int64_t startFrame = 0;              ///< Frame that the time code of the file's beginning names.
    std::int64_t frameCount = 0;              ///< Length of the file.
    std::optional<std::int64_t> sampleOffset; ///< Time reference of a Broadcast Wave file, in samples.
    bool hasVideo = false;
    bool hasAudio = true;
    int width = 0;
    int height = 0;
    int sampleRate = 0;
    int channels = 0;
    bool hasOwnRate = false;     ///< The rate comes from the file, not from the default.
    bool hasOwnTimecode = false; ///< So does the start.

    std::string startTimecode() const { return timecodeOf(startFrame, rate); }
    /// Time code of the frame at a time of the clip.
    std::string timecodeAt(std::int64_t milliseconds) const {
        return timecodeOf(startFrame + rate.frameAt(milliseconds), rate);
    }
};

/// What the user says about time codes; what is empty is read from the media.
struct ClockOptions {
    std::string frameRate;
    std::string startTimecode;
};

/// Reads rate, start time code and length of a media file: from its time code track, its time reference, or
/// its picture. A file without a picture counts 25 frames a second unless told otherwise.
/// @throws Failure without the file's name when it cannot be read, UsageError for an option that is no rate
/// or time code.
ClipClock readClock(const std::filesystem::path& file, const ClockOptions& options);

/// The clock of a clip whose file is not at hand.
ClipClock makeClock(const ClockOptions& options, std::int64_t lengthMs);

} // namespace kestrel
