#include "apps/kestrel/terminal/Confirm.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/terminal/Answer.h"

#include <fmt/format.h>

#include <cstdio>
#include <unistd.h>

namespace kestrel {

void confirm(const std::string& question, bool yes) {
    if (yes) return;
    if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDERR_FILENO) == 0)
        throw UsageError(fmt::format("there is no terminal to ask on: {} Answer with --yes", question));
    fmt::print(stderr, "{} [y/N] ", printable(question));
    std::fflush(stderr);
    const std::string answer = readAnswer();
    if (answer != "y" && answer != "Y" && answer != "yes") throw Failure("nothing was changed");
}

} // namespace kestrel
