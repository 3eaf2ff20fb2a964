#pragma once

#include <cstdint>
#include <string>

namespace kestrel {

/// Frames a second, as an exact fraction, and the way in which time codes count them.
struct FrameRate {
    std::int64_t frames = 25; ///< Frames in `seconds`.
    std::int64_t seconds = 1;
    bool dropFrame = false; ///< Skips labels, never frames, so that labels of 29.97 stay near clock time.

    /// Labels that a second of time code has: 30 for 29.97.
    std::int64_t nominal() const;
    double perSecond() const { return static_cast<double>(frames) / static_cast<double>(seconds); }
    /// As people write it: "25", "23.976", "29.97 drop-frame".
    std::string name() const;

    /// The frame on screen at a time, counted from the first one.
    std::int64_t frameAt(std::int64_t milliseconds) const;
    /// The first frame that begins at or after a time.
    std::int64_t frameFrom(std::int64_t milliseconds) const;
    /// Time at which a frame begins, rounded to the nearest millisecond.
    std::int64_t millisecondsAt(std::int64_t frame) const;

    bool operator==(const FrameRate&) const = default;
};

/// Reads "25", "29.97", "29.97df" or "30000/1001". A decimal that stands for a rate of the NTSC
/// family, such as 23.976 or 23.98, means the exact fraction.
/// @throws UsageError naming the text.
FrameRate parseFrameRate(const std::string& text);
/// The usual rate that a measured one stands for, as 24000/1001 for 2997/125; else the measured one itself.
FrameRate usualRate(std::int64_t frames, std::int64_t seconds);

/// The SMPTE 12M label of a frame: 01:00:00:00, or 01:00:00;00 with drop-frame counting. Wraps at 24 hours.
std::string timecodeOf(std::int64_t frame, const FrameRate& rate);
/// The frame that a label names. Either separator is understood; `rate` says how to count.
/// @throws UsageError naming the text and, for a label that drop-frame counting skips, saying so.
std::int64_t frameOfTimecode(const std::string& text, const FrameRate& rate);
/// Whether a label is written with the separator of drop-frame counting.
bool isDropFrameLabel(const std::string& text);

} // namespace kestrel
