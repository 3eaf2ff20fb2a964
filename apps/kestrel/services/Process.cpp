#include "apps/kestrel/services/Process.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kestrel {

namespace {

struct Status {
    char state = '?';
    std::uint64_t startTime = 0;
};

std::optional<Status> statusOf(pid_t pid) {
    std::ifstream file(fmt::format("/proc/{}/stat", pid));
    std::string line;
    if (pid <= 0 || !std::getline(file, line)) return std::nullopt;
    // The name, in brackets, may hold spaces and brackets itself.
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    Status status;
    fields >> status.state;
    std::string skipped;
    for (int field = 4; field < 22; ++field)
        fields >> skipped;
    fields >> status.startTime;
    return fields ? std::optional(status) : std::nullopt;
}

void check(int result, const std::filesystem::path& program) {
    if (result != 0)
        throw Failure(fmt::format("cannot start {}: {}", program.string(), std::strerror(result)));
}

} // namespace

bool Process::isRunning() const {
    ::waitpid(pid, nullptr, WNOHANG); // one that we started ourselves stays a zombie until it is waited for
    const std::optional<Status> status = statusOf(pid);
    return status && status->startTime == startTime && status->state != 'Z' && status->state != 'X';
}

std::optional<Process> findProcess(pid_t pid) {
    const std::optional<Status> status = statusOf(pid);
    return status ? std::optional(Process{pid, status->startTime}) : std::nullopt;
}

Process startDetached(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::filesystem::path& log) {
    std::string name = program.string();
    std::vector<std::string> copies = arguments;
    std::vector<char*> argv{name.data()};
    for (std::string& argument : copies)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    check(::posix_spawn_file_actions_init(&actions), program);
    check(::posix_spawnattr_init(&attributes), program);
    const auto release = [&](void*) {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    };
    const std::unique_ptr<void, decltype(release)> guard(&actions, release);

    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    check(::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0), program);
    check(::posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600),
          program);
    check(::posix_spawn_file_actions_adddup2(&actions, 1, 2), program);
    check(::posix_spawn_file_actions_addclosefrom_np(&actions, 3), program);
    check(::posix_spawnattr_setsigmask(&attributes, &none), program);
    check(::posix_spawnattr_setsigdefault(&attributes, &all), program);
    check(::posix_spawnattr_setflags(&attributes,
                                     POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
          program);
    pid_t pid = 0;
    check(::posix_spawn(&pid, name.c_str(), &actions, &attributes, argv.data(), environ), program);
    return findProcess(pid).value_or(Process{pid, 0});
}

void stop(const Process& process, std::chrono::milliseconds patience) {
    using Clock = std::chrono::steady_clock;
    for (const int signal : {SIGTERM, SIGKILL}) {
        if (!process.isRunning()) return;
        ::kill(-process.pid, signal);
        for (const auto start = Clock::now(); process.isRunning() && Clock::now() - start < patience;)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

} // namespace kestrel
