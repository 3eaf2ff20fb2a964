#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kestrel {

/// A process. The start time distinguishes it from a later one with the same number.
struct Process {
    pid_t pid = 0;
    std::uint64_t startTime = 0; ///< Clock ticks since boot.

    bool isRunning() const;
};

/// The process that has this number now.
std::optional<Process> findProcess(pid_t pid);

/// Starts a program in a session of its own, so that it outlives the terminal, with its output in `log`.
/// @throws Failure naming the program.
Process startDetached(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      const std::filesystem::path& log);

/// Asks the process's group to end, and kills it after `patience`. Does nothing if the process is not
/// running.
void stop(const Process& process, std::chrono::milliseconds patience);

} // namespace kestrel
