#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kestrel {

/// Estimates how long the rest of several pieces of work takes, by their sizes.
class TimeLeft {
public:
    using Clock = std::chrono::steady_clock;

    explicit TimeLeft(std::uintmax_t totalSize) : mToDo(totalSize) {}

    void begin(std::uintmax_t size, Clock::time_point now = Clock::now());
    /// @param counts Whether the piece was worked on: one that was skipped tells nothing of the others.
    void end(bool counts, Clock::time_point now = Clock::now());

    /// "about 3 min left", once there is something to judge by, else nothing.
    /// @param fraction Of the current piece, 0 to 1.
    std::string note(double fraction, Clock::time_point now = Clock::now()) const;

private:
    std::uintmax_t mToDo; ///< Size of what has not begun.
    std::uintmax_t mCurrent = 0;
    std::uintmax_t mDone = 0;
    Clock::time_point mBegin;
    Clock::duration mTaken{};
};

/// "40 s", "3 min", "2 h 05 min".
std::string durationText(std::chrono::seconds duration);

} // namespace kestrel
