#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

bool isPasswordGood(const Home& home, const std::string& uri) {
    try {
        return hasCredentials(home) && acceptsCredentials(home, uri);
    } catch (const Failure&) {
        return false; // a damaged file is as good as none: it is made anew
    }
}

void settlePassword(const Home& home, const std::string& uri, const std::filesystem::path& log) {
    // The key and what it encrypts are two files; of several `up` at once, one writes them.
    const FileLock lock = FileLock::take(home.root() / "credentials.lock");
    if (isPasswordGood(home, uri)) return;
    takeUpCredentials(home);
    if (!acceptsCredentials(home, uri))
        throw Failure(
            fmt::format("the index service at {} refuses the password that it made itself; its log is {}",
                        uri, log.string()));
}

} // namespace

int up(const UpOptions& options) {
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    home.create();
    const Services services(home);
    const auto started =
        services.start({{Service::Index, options.indexPort}, {Service::Speech, options.speechPort}});
    for (const auto& [service, running] : services.running())
        tell(fmt::format("{:6}  {}  {} (process {})", nameOf(service), running.uri,
                         started.contains(service) ? "started" : "already running", running.process.pid));
    settlePassword(home, require(home, Service::Index).uri, services.logFile(Service::Index));
    return ExitFine;
}

} // namespace kestrel
