#include "apps/kestrel/terminal/Answer.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/terminal/Interrupt.h"

#include <poll.h>
#include <unistd.h>

namespace kestrel {

std::string readAnswer() {
    constexpr int kPollMs = 100;
    catchInterrupts();
    std::string line;
    while (true) {
        pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        const int ready = ::poll(&input, 1, kPollMs);
        if (wasInterrupted()) throw Cancelled("cancelled");
        if (ready <= 0) continue;
        char character = 0;
        if (::read(STDIN_FILENO, &character, 1) <= 0 || character == '\n') return line;
        line += character;
    }
}

} // namespace kestrel
