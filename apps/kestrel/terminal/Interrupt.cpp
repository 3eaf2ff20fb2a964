#include "apps/kestrel/terminal/Interrupt.h"

#include <atomic>
#include <csignal>

namespace kestrel {

namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void note(int) {
    interrupted = true;
}

} // namespace

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM})
        ::sigaction(signal, &action, nullptr);
}

bool wasInterrupted() {
    return interrupted;
}

} // namespace kestrel
