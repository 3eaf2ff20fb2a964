#pragma once

/// @file
/// The one place through which operations called with `debug` print. Internal.

#include <sstream>
#include <string_view>

namespace kestrelml::detail {

/// Writes `text` to standard output and flushes it.
void writeDebug(std::string_view text);

/// Writes the parts and a newline, if `debug` is set.
template <typename... Parts>
void debugLine(bool debug, const Parts&... parts) {
    if (!debug) return;
    std::ostringstream line;
    (line << ... << parts) << '\n';
    writeDebug(line.str());
}

} // namespace kestrelml::detail
