#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include "apps/kestrel/terminal/Interrupt.h"

namespace kestrel {

Callbacks terminalCallbacks(ProgressLine& line) {
    Callbacks callbacks = terminalCallbacks();
    callbacks.progress = [&line](const std::string& stage, double fraction) { line.show(stage, fraction); };
    return callbacks;
}

Callbacks terminalCallbacks() {
    Callbacks callbacks;
    callbacks.notice = tell;
    callbacks.cancelled = wasInterrupted;
    return callbacks;
}

} // namespace kestrel
