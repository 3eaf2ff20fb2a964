#include "apps/kestrel/Failure.h"
#include "apps/kestrel/Output.h"
#include "apps/kestrel/Services.h"
#include "apps/kestrel/commands/Commands.h"

#include <fmt/format.h>

namespace kestrel {

int down() {
    const Home home = Home::fromEnvironment();
    const auto ended =
        std::filesystem::exists(home.servicesFile()) ? Services(home).stop() : Services::Running{};
    for (const auto& [service, process] : ended)
        tell(fmt::format("{:6}  {}  stopped", nameOf(service), process.uri));
    if (ended.empty()) tell("no service was running");
    return ExitFine;
}

} // namespace kestrel
