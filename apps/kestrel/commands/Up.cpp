#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Startup.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <Poco/URI.h>
#include <fmt/format.h>

#include <memory>
#include <optional>

namespace kestrel {

namespace {

struct UpOptions {
    std::optional<int> indexPort;
    std::optional<int> speechPort;
};

/// A service that runs already stays where it is.
void requirePort(const Services::Running& running, Service service, const std::optional<int>& port) {
    const auto found = running.find(service);
    if (found == running.end() || port.value_or(0) == 0) return; // 0: anywhere will do
    if (Poco::URI(found->second.uri).getPort() == *port) return;
    throw Failure(fmt::format("port {} comes too late: the {} service runs at {} already; `kestrel down` "
                              "stops it",
                              *port, nameOf(service), found->second.uri));
}

int up(const UpOptions& options) {
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    const Services::Running before = Services(home).running();
    requirePort(before, Service::Index, options.indexPort);
    requirePort(before, Service::Speech, options.speechPort);
    const auto started = bringUp(home,
                                 {{Service::Index, options.indexPort.value_or(kIndexPort)},
                                  {Service::Speech, options.speechPort.value_or(kSpeechPort)}},
                                 terminalCallbacks());
    for (const auto& [service, running] : Services(home).running())
        tell(fmt::format("{:6}  {}  {} (process {})", nameOf(service), running.uri,
                         started.contains(service) ? "started" : "already running", running.process.pid));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<UpOptions>();
    const auto addPort = [&](const char* name, std::optional<int>& port, int usual, const char* help) {
        app.add_option(name, port, help)->default_str(std::to_string(usual))->check(CLI::Range(0, 65535));
    };
    addPort("--index-port", options->indexPort, kIndexPort, "Port of the index service; 0: any free one");
    addPort("--speech-port", options->speechPort, kSpeechPort, "Port of the speech service; 0: any free one");
    app.footer("Both keep running after the terminal is closed, until `kestrel down`. Their logs are in "
               "$KESTREL_HOME/log.\n\nExamples:\n  kestrel up\n  kestrel up --index-port 0 --speech-port 0");
    return [options] { return up(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Services, "up",
                                         "Start the index service and the speech service", setUp});

} // namespace

} // namespace kestrel
