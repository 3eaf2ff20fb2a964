#pragma once

#include <string>

namespace kestrel {

/// Whether the text is well-formed UTF-8.
bool isUtf8(const std::string& text);

/// Text that a terminal shows and does not obey: control characters become escapes such as \x1b, bytes that
/// are not UTF-8 become U+FFFD. Line feeds, tabs and our own emphasis stay.
std::string printable(const std::string& text);
/// The same for a name that stands within a line: line feeds and tabs become escapes too.
std::string printableName(const std::string& name);

/// How a terminal is told to emphasise, and to stop.
inline constexpr const char* kEmphasisOn = "\033[1m";
inline constexpr const char* kEmphasisOff = "\033[0m";

/// "1 segment", "2 segments".
std::string counted(std::size_t count, const std::string& noun);

} // namespace kestrel
