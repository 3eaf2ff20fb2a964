#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/home/Home.h"
#include "apps/kestrel/services/Process.h"

#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

enum class Service { Index, Speech };
inline constexpr std::array kAllServices{Service::Index, Service::Speech};

const char* nameOf(Service service);

struct RunningService {
    std::string uri; ///< Ends in "/".
    Process process;
};

/// The index service and the speech service of one home: started, found again and ended.
class Services {
public:
    using Running = std::map<Service, RunningService>;
    using Ports = std::map<Service, int>;

    explicit Services(Home home);

    /// Those that `start` started and that still run.
    Running running() const;
    /// Starts what does not run yet and returns what it started. Nothing stays started when one of them
    /// fails.
    /// @throws Failure with the end of the log when a service does not come up, Cancelled.
    Running start(const Ports& ports, const Callbacks& callbacks) const;
    /// Ends what `start` started, and nothing else; returns what it ended.
    Running stop() const;

    std::filesystem::path logFile(Service service) const;

private:
    RunningService spawn(Service service, int port) const;
    void waitUntilReady(Service service, RunningService& started, const Callbacks& callbacks) const;
    std::filesystem::path readyFile(Service service) const;
    std::string logEnd(Service service) const;
    void record(const Running& services) const;

    Home mHome;
};

/// @throws Failure that tells the user to start it when the service does not run.
RunningService require(const Home& home, Service service);

} // namespace kestrel
