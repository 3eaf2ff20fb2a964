#pragma once

#include <string>

namespace kestrel {

/// Reads a line that the user types on standard input, without its end; what there is when the input ends.
/// @throws Cancelled on Ctrl-C.
std::string readAnswer();

} // namespace kestrel
