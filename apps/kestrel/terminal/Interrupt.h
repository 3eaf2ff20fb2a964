#pragma once

namespace kestrel {

/// From here on the first Ctrl-C (or SIGTERM) is only noted. The process ends with `ExitCancelled` at the
/// second one, or when nothing calls `wasInterrupted` within five seconds of the first: whatever is being
/// waited for then does not answer. Call before other threads start.
void catchInterrupts();
bool wasInterrupted();

} // namespace kestrel
