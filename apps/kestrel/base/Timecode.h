#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace kestrel {

/// Hours, minutes, seconds and milliseconds, as in 01:02:03.456.
std::string timecode(std::int64_t milliseconds);
/// Reads seconds (90, 90.5), minutes (1:30) or hours (1:02:03.456) as milliseconds.
/// @throws UsageError naming the text.
std::int32_t parseTimecode(const std::string& text);
/// Reads START-END.
/// @throws UsageError naming the text, also when the end lies before the start.
std::pair<std::int32_t, std::int32_t> parseRange(const std::string& text);

} // namespace kestrel
