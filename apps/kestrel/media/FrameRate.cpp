#include "apps/kestrel/media/FrameRate.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <cmath>
#include <numeric>
#include <regex>

namespace kestrel {

namespace {

constexpr std::int64_t kHours = 24;
constexpr std::int64_t kMaximumNominal = 1000;

/// Labels skipped at the start of each minute, but not of each tenth one (SMPTE 12M).
std::int64_t skippedLabels(const FrameRate& rate) {
    return rate.dropFrame ? rate.nominal() / 15 : 0;
}

std::int64_t framesInTenMinutes(const FrameRate& rate) {
    return rate.nominal() * 600 - 9 * skippedLabels(rate);
}

/// floor(value * factor / divisor), whatever the sign; the product may exceed 64 bits.
std::int64_t scaled(std::int64_t value, std::int64_t factor, std::int64_t divisor) {
    const __int128 product = static_cast<__int128>(value) * factor;
    __int128 quotient = product / divisor;
    if (product % divisor < 0) --quotient;
    return static_cast<std::int64_t>(quotient);
}

[[noreturn]] void failRate(const std::string& text) {
    throw UsageError(fmt::format(
        "\"{}\" is not a frame rate; write 24, 25, 29.97, 29.97df (drop-frame), 30000/1001 or the like",
        text));
}

FrameRate reduced(std::int64_t frames, std::int64_t seconds) {
    const std::int64_t divisor = std::gcd(frames, seconds);
    return {frames / divisor, seconds / divisor, false};
}

} // namespace

std::int64_t FrameRate::nominal() const {
    return (frames + seconds - 1) / seconds;
}

std::string FrameRate::name() const {
    const std::string number =
        seconds == 1 ? fmt::format("{}", frames)
                     : fmt::format("{:.{}f}", perSecond(), frames == 24000 && seconds == 1001 ? 3 : 2);
    return number + (dropFrame ? " drop-frame" : "");
}

std::int64_t FrameRate::frameAt(std::int64_t milliseconds) const {
    return scaled(milliseconds, frames, seconds * 1000);
}

std::int64_t FrameRate::frameFrom(std::int64_t milliseconds) const {
    return -scaled(-milliseconds, frames, seconds * 1000);
}

std::int64_t FrameRate::millisecondsAt(std::int64_t frame) const {
    return scaled(2 * frame * seconds * 1000 + frames, 1, 2 * frames);
}

FrameRate usualRate(std::int64_t frames, std::int64_t seconds) {
    if (frames <= 0 || seconds <= 0) throw Failure(fmt::format("{}/{} is no frame rate", frames, seconds));
    const double measured = static_cast<double>(frames) / static_cast<double>(seconds);
    const std::int64_t whole = std::llround(measured);
    // Between a rate and its NTSC neighbour lies one part in a thousand; files round far finer than that.
    constexpr double kTolerance = 3e-4;
    const auto isNear = [&](double rate) { return std::abs(measured - rate) < rate * kTolerance; };
    if (whole > 0 && isNear(static_cast<double>(whole))) return {whole, 1, false};
    const std::int64_t above = static_cast<std::int64_t>(std::ceil(measured));
    const bool hasNtscForm = above % 24 == 0 || above % 30 == 0;
    if (hasNtscForm && isNear(static_cast<double>(above) / 1.001)) return {above * 1000, 1001, false};
    return reduced(frames, seconds);
}

FrameRate parseFrameRate(const std::string& text) {
    static const std::regex form(R"((\d{1,6})(?:/(\d{1,6})|\.(\d{1,3}))? ?(df|ndf|drop|DF|NDF)?)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) failRate(text);
    std::int64_t frames = std::stoll(parts[1]);
    std::int64_t seconds = 1;
    if (parts[2].matched) seconds = std::stoll(parts[2]);
    for (const char digit : parts[3].str()) {
        frames = frames * 10 + (digit - '0');
        seconds *= 10;
    }
    if (frames == 0 || seconds == 0 || frames / seconds >= kMaximumNominal) failRate(text);
    FrameRate rate = usualRate(frames, seconds);
    const std::string counting = parts[4].str();
    rate.dropFrame = counting == "df" || counting == "DF" || counting == "drop";
    if (rate.dropFrame && (rate.nominal() % 30 != 0 || rate.seconds != 1001))
        throw UsageError(fmt::format("\"{}\": drop-frame counting belongs to 29.97, 59.94 and 119.88", text));
    return rate;
}

std::string timecodeOf(std::int64_t frame, const FrameRate& rate) {
    const std::int64_t nominal = rate.nominal();
    const std::int64_t tens = framesInTenMinutes(rate);
    const std::int64_t day = kHours * 6 * tens;
    frame = (frame % day + day) % day;
    if (const std::int64_t skipped = skippedLabels(rate); skipped > 0) {
        const std::int64_t minute = nominal * 60 - skipped;
        const std::int64_t within = frame % tens;
        const std::int64_t minutes = within < nominal * 60 ? 0 : (within - skipped) / minute;
        frame += frame / tens * 9 * skipped + minutes * skipped;
    }
    const std::int64_t second = frame / nominal;
    return fmt::format("{:02}:{:02}:{:02}{}{:02}", second / 3600, second / 60 % 60, second % 60,
                       rate.dropFrame ? ';' : ':', frame % nominal);
}

std::int64_t frameOfTimecode(const std::string& text, const FrameRate& rate) {
    static const std::regex form(R"((\d{1,2}):(\d{1,2}):(\d{1,2})[:;.,](\d{1,3}))");
    std::smatch parts;
    if (!std::regex_match(text, parts, form))
        throw UsageError(fmt::format("\"{}\" is not a time code; write 01:00:00:00", text));
    const std::int64_t hours = std::stoll(parts[1]);
    const std::int64_t minutes = std::stoll(parts[2]);
    const std::int64_t seconds = std::stoll(parts[3]);
    const std::int64_t frames = std::stoll(parts[4]);
    if (hours >= kHours || minutes > 59 || seconds > 59 || frames >= rate.nominal())
        throw UsageError(fmt::format("\"{}\" is not a time code of {} frames a second", text, rate.name()));
    const std::int64_t skipped = skippedLabels(rate);
    if (frames < skipped && seconds == 0 && minutes % 10 != 0)
        throw UsageError(fmt::format("there is no time code \"{}\": drop-frame counting skips it", text));
    const std::int64_t allMinutes = hours * 60 + minutes;
    return (allMinutes * 60 + seconds) * rate.nominal() + frames - skipped * (allMinutes - allMinutes / 10);
}

bool isDropFrameLabel(const std::string& text) {
    return text.find_first_of(";,") != std::string::npos;
}

} // namespace kestrel
