#include "apps/kestrel/terminal/TimeLeft.h"

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

void TimeLeft::begin(std::uintmax_t size, Clock::time_point now) {
    mCurrent = size;
    mToDo -= std::min(size, mToDo);
    mBegin = now;
}

void TimeLeft::end(bool counts, Clock::time_point now) {
    if (!counts) return;
    mDone += mCurrent;
    mTaken += now - mBegin;
}

std::string TimeLeft::note(double fraction, Clock::time_point now) const {
    constexpr std::chrono::seconds kShortest{5};
    const auto taken = std::chrono::duration<double>(mTaken + (now - mBegin));
    const double done = static_cast<double>(mDone) + fraction * static_cast<double>(mCurrent);
    if (taken < kShortest || done <= 0.0) return "";
    const double left = static_cast<double>(mToDo) + (1.0 - fraction) * static_cast<double>(mCurrent);
    const auto rest = std::chrono::duration_cast<std::chrono::seconds>(taken * (left / done));
    return fmt::format("about {} left", durationText(rest));
}

std::string durationText(std::chrono::seconds duration) {
    const auto seconds = duration.count();
    constexpr int kMinute = 60;
    constexpr int kHour = 3600;
    if (seconds < kMinute) return fmt::format("{} s", seconds);
    if (seconds < kHour) return fmt::format("{} min", (seconds + kMinute / 2) / kMinute);
    return fmt::format("{} h {:02} min", seconds / kHour, seconds % kHour / kMinute);
}

} // namespace kestrel
