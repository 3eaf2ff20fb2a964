#pragma once

namespace kestrel {

/// From here on the first Ctrl-C (or SIGTERM) is only noted; the second ends the process.
void catchInterrupts();
bool wasInterrupted();

} // namespace kestrel
