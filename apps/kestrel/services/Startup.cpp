#include "apps/kestrel/services/Startup.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

bool isPasswordGood(const Home& home, const std::string& uri) {
    try {
        return hasCredentials(home) && acceptsCredentials(home, uri);
    } catch (const Failure&) {
        return false; // a damaged file is replaced, as a missing one is
    }
}

void ensurePassword(const Home& home, const std::string& uri, const std::filesystem::path& log) {
    // The key and what it encrypts are two files; of several that start at once, one writes them.
    const FileLock lock = FileLock::take(home.root() / "credentials.lock");
    if (isPasswordGood(home, uri)) return;
    adoptCredentials(home);
    if (!acceptsCredentials(home, uri))
        throw Failure(
            fmt::format("the index service at {} refuses the password that it made itself; its log is {}",
                        uri, log.string()));
}

} // namespace

Services::Running bringUp(const Home& home, const Services::Ports& ports, const Callbacks& callbacks) {
    home.create();
    const Services services(home);
    auto started = services.start(ports, callbacks);
    ensurePassword(home, require(home, Service::Index).uri, services.logFile(Service::Index));
    return started;
}

} // namespace kestrel
