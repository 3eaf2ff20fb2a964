#include "apps/kestrel/services/Services.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/home/Recognisers.h"

#include <Poco/Exception.h>
#include <fmt/format.h>

#include <arpa/inet.h>
#include <cerrno>
#include <deque>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr std::chrono::seconds kStartPatience{120}; // a cold Python with its models takes its time
constexpr std::chrono::seconds kStopPatience{20};
constexpr std::size_t kQuotedLogLines = 8;

fs::path executable(Service service) {
    return executableFolder() / (service == Service::Index ? "kestrel-index" : "kestrel-speech");
}

const char* portOption(Service service) {
    return service == Service::Index ? "--index-port" : "--speech-port";
}

bool isPortTaken(int port) {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool taken = ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
                       errno == EADDRINUSE;
    ::close(probe);
    return taken;
}

} // namespace

const char* nameOf(Service service) {
    return service == Service::Index ? "index" : "speech";
}

Services::Services(Home home) : mHome(std::move(home)) {
}

Services::Running Services::running() const {
    Running found;
    if (!fs::exists(mHome.servicesFile())) return found;
    auto state = readJson(mHome.servicesFile());
    for (const Service service : kAllServices) {
        auto entry = state->getObject(nameOf(service));
        if (!entry) continue;
        try {
            const RunningService recorded{
                entry->getValue<std::string>("uri"),
                Process{entry->getValue<pid_t>("pid"), entry->getValue<std::uint64_t>("startTime")}};
            if (recorded.process.isRunning()) found.emplace(service, recorded);
        } catch (const Poco::Exception& error) {
            throw Failure(
                fmt::format("{} is damaged: {}", mHome.servicesFile().string(), error.displayText()));
        }
    }
    return found;
}

Services::Running Services::start(const Ports& ports, const Callbacks& callbacks) const {
    const FileLock lock = FileLock::take(mHome.root() / "services.lock");
    Running all = running();
    Running started;
    try {
        for (const Service service : kAllServices) {
            if (!all.contains(service)) started.emplace(service, spawn(service, ports.at(service)));
        }
        for (auto& [service, process] : started)
            waitUntilReady(service, process, callbacks);
        all.insert(started.begin(), started.end());
        record(all);
    } catch (const Failure&) {
        for (const auto& [service, process] : started)
            kestrel::stop(process.process, kStopPatience);
        throw;
    }
    return started;
}

Services::Running Services::stop() const {
    const FileLock lock = FileLock::take(mHome.root() / "services.lock");
    Running ended = running();
    for (const auto& [service, process] : ended)
        kestrel::stop(process.process, kStopPatience);
    record({});
    return ended;
}

RunningService Services::spawn(Service service, int port) const {
    const fs::path program = executable(service);
    if (!fs::exists(program))
        throw Failure(
            fmt::format("{} is missing: it belongs beside the kestrel executable", program.string()));
    if (port != 0 && isPortTaken(port))
        throw Failure(
            fmt::format("port {} is taken by another program: end it, or choose another port for the {} "
                        "service with `kestrel up {} PORT` (0: any free one)",
                        port, nameOf(service), portOption(service)));
    std::error_code ignored;
    fs::rename(logFile(service), fmt::format("{}.old", logFile(service).string()), ignored);
    fs::remove(readyFile(service), ignored);

    std::vector<std::string> arguments{"--port", std::to_string(port), "--ready-file",
                                       readyFile(service).string()};
    if (service == Service::Index) {
        arguments.emplace_back("--data");
        arguments.push_back(mHome.indexData().string());
    }
    if (service == Service::Speech) RecogniserSettings::announce(RecogniserSettings::fileOfService(mHome));
    return RunningService{"", startDetached(program, arguments, logFile(service))};
}

void Services::waitUntilReady(Service service, RunningService& started, const Callbacks& callbacks) const {
    const auto begin = std::chrono::steady_clock::now();
    while (!fs::exists(readyFile(service))) {
        callbacks.throwIfCancelled();
        if (!started.process.isRunning())
            throw Failure(fmt::format("the {} service ended while it was starting{}", nameOf(service),
                                      logEnd(service)));
        if (std::chrono::steady_clock::now() - begin > kStartPatience)
            throw Failure(fmt::format("the {} service was not ready after {} seconds{}", nameOf(service),
                                      kStartPatience.count(), logEnd(service)));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    started.uri = readJson(readyFile(service))->optValue<std::string>("uri", "");
}

std::string Services::logEnd(Service service) const {
    std::ifstream log(logFile(service));
    std::deque<std::string> lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
        if (lines.size() > kQuotedLogLines) lines.pop_front();
    }
    std::string text =
        fmt::format("; {} {}", logFile(service).string(), lines.empty() ? "is empty" : "ends with:");
    for (const std::string& line : lines)
        text += "\n    " + line;
    return text;
}

void Services::record(const Running& services) const {
    auto state = jsonObject();
    for (const auto& [service, running] : services) {
        auto entry = jsonObject();
        entry->set("uri", running.uri);
        entry->set("pid", running.process.pid);
        entry->set("startTime", running.process.startTime);
        state->set(nameOf(service), entry);
    }
    replaceFile(mHome.servicesFile(), toText(state), 0600);
}

fs::path Services::logFile(Service service) const {
    return mHome.logFolder() / fmt::format("{}.log", nameOf(service));
}

fs::path Services::readyFile(Service service) const {
    return mHome.runFolder() / fmt::format("{}.ready", nameOf(service));
}

RunningService require(const Home& home, Service service) {
    const Services services(home);
    const auto running = services.running();
    const auto found = running.find(service);
    if (found == running.end())
        throw Failure(
            fmt::format("the {} service is not running: start it with `kestrel up`", nameOf(service)));
    return found->second;
}

} // namespace kestrel
