#include "apps/kestrel/terminal/Confirm.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace kestrel {

void confirm(const std::string& question, bool yes) {
    if (yes) return;
    if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDERR_FILENO) == 0)
        throw UsageError(
            fmt::format("refused, since there is nobody to ask: {} Say so with --yes", question));
    fmt::print(stderr, "{} [y/N] ", question);
    std::fflush(stderr);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") throw Failure("nothing was changed");
}

} // namespace kestrel
