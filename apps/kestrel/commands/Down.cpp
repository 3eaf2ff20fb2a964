#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

int down() {
    const Home home = Home::fromEnvironment();
    const auto ended =
        std::filesystem::exists(home.servicesFile()) ? Services(home).stop() : Services::Running{};
    for (const auto& [service, process] : ended)
        tell(fmt::format("{:6}  {}  stopped", nameOf(service), process.uri));
    if (ended.empty()) tell("no service was running");
    return ExitFine;
}

Run setUp(CLI::App& app) {
    app.footer("Example:\n  kestrel down");
    return down;
}

const CommandRegistration kRegistration({CommandGroup::Services, "down", "Stop what `kestrel up` started",
                                         setUp});

} // namespace

} // namespace kestrel
