#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Startup.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct UpOptions {
    int indexPort = kIndexPort;
    int speechPort = kSpeechPort;
};

int up(const UpOptions& options) {
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    const auto started =
        bringUp(home, {{Service::Index, options.indexPort}, {Service::Speech, options.speechPort}},
                terminalCallbacks());
    for (const auto& [service, running] : Services(home).running())
        tell(fmt::format("{:6}  {}  {} (process {})", nameOf(service), running.uri,
                         started.contains(service) ? "started" : "already running", running.process.pid));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<UpOptions>();
    const auto addPort = [&](const char* name, int& port, const char* help) {
        app.add_option(name, port, help)->capture_default_str()->check(CLI::Range(0, 65535));
    };
    addPort("--index-port", options->indexPort, "Port of the index service; 0: any free one");
    addPort("--speech-port", options->speechPort, "Port of the speech service; 0: any free one");
    app.footer("Both keep running after the terminal is closed, until `kestrel down`. Their logs are in "
               "$KESTREL_HOME/log.\n\nExamples:\n  kestrel up\n  kestrel up --index-port 0 --speech-port 0");
    return [options] { return up(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Services, "up",
                                         "Start the index service and the speech service", setUp});

} // namespace

} // namespace kestrel
