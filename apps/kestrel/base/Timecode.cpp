#include "apps/kestrel/base/Timecode.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <limits>
#include <regex>

namespace kestrel {

std::string timecode(std::int64_t milliseconds) {
    return fmt::format("{:02}:{:02}:{:02}.{:03}", milliseconds / 3'600'000, milliseconds / 60'000 % 60,
                       milliseconds / 1000 % 60, milliseconds % 1000);
}

std::int32_t parseTimecode(const std::string& text) {
    static const std::regex form(R"((?:(?:(\d{1,4}):)?(\d{1,4}):)?(\d{1,7})(?:[.,](\d{1,3}))?)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form))
        throw UsageError(fmt::format("\"{}\" is not a time; write 90.5, 1:30 or 1:02:03.456", text));
    const auto number = [&](std::size_t part) { return parts[part].matched ? std::stoll(parts[part]) : 0; };
    std::string fraction = parts[4].matched ? parts[4].str() : "";
    fraction.resize(3, '0');
    const std::int64_t seconds = (number(1) * 60 + number(2)) * 60 + number(3);
    const std::int64_t milliseconds = seconds * 1000 + std::stoll(fraction);
    if (milliseconds > std::numeric_limits<std::int32_t>::max())
        throw UsageError(fmt::format("the time \"{}\" is beyond 596 hours", text));
    return static_cast<std::int32_t>(milliseconds);
}

std::pair<std::int32_t, std::int32_t> parseRange(const std::string& text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos)
        throw UsageError(fmt::format("\"{}\" is not a range; write START-END, as in 1:30-2:45", text));
    const std::pair range{parseTimecode(text.substr(0, dash)), parseTimecode(text.substr(dash + 1))};
    if (range.second < range.first)
        throw UsageError(fmt::format("the range \"{}\" ends before it starts", text));
    return range;
}

} // namespace kestrel
