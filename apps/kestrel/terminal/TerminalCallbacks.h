#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/terminal/Output.h"

namespace kestrel {

/// Progress on the given line, notices on standard error, Ctrl-C cancels. The line must outlive the
/// callbacks.
Callbacks terminalCallbacks(ProgressLine& line);
/// The same without progress.
Callbacks terminalCallbacks();

} // namespace kestrel
