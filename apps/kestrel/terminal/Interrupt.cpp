#include "apps/kestrel/terminal/Interrupt.h"

#include "apps/kestrel/base/Failure.h"

#include <atomic>
#include <csignal>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace kestrel {

namespace {

std::atomic<bool> interrupted{false};
std::atomic<bool> noticed{false};

constexpr timespec kPatience{.tv_sec = 5, .tv_nsec = 0};

/// A thread of its own takes the signals, since one that reads from a stalled mount does not even run a
/// signal handler.
void watch(const sigset_t& signals) {
    int signal = 0;
    ::sigwait(&signals, &signal);
    interrupted = true;
    if (::sigtimedwait(&signals, nullptr, &kPatience) < 0 && noticed) ::sigwait(&signals, &signal);
    constexpr std::string_view kMessage = "kestrel: cancelled; what was stored stays, run the same command "
                                          "again to resume\n";
    [[maybe_unused]] const auto ignored = ::write(STDERR_FILENO, kMessage.data(), kMessage.size());
    ::_exit(ExitCancelled);
}

} // namespace

void catchInterrupts() {
    static const bool isCaught = [] {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (const int signal : {SIGINT, SIGTERM})
            ::sigaddset(&signals, signal);
        // Threads that begin later inherit this.
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::thread(watch, signals).detach();
        return true;
    }();
    static_cast<void>(isCaught);
}

bool wasInterrupted() {
    if (interrupted) noticed = true;
    return interrupted;
}

} // namespace kestrel
