#pragma once

#include <string>

namespace kestrel {

/// Asks the user before something is lost, unless `yes` says that the answer is known.
/// @throws UsageError without a terminal to ask on, Failure when the answer is not yes.
void confirm(const std::string& question, bool yes);

} // namespace kestrel
