#include "apps/kestrel/services/Process.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"

#include <Poco/TemporaryFile.h>
#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>

namespace kestrel {
namespace {

constexpr std::chrono::seconds kPatience{10};

TEST(Process, IsKnownByItsStartTime) {
    const std::optional<Process> self = findProcess(::getpid());
    ASSERT_TRUE(self.has_value());
    EXPECT_TRUE(self->isRunning());
    EXPECT_FALSE((Process{self->pid, self->startTime + 1}).isRunning());
    stop(Process{self->pid, self->startTime + 1}, kPatience); // somebody else's number: we live on
}

TEST(Process, StartsInItsOwnSessionAndWritesItsLog) {
    const Poco::TemporaryFile log;
    const Process started = startDetached("/bin/sh", {"-c", "echo said; exec sleep 60"}, log.path());
    EXPECT_TRUE(started.isRunning());
    EXPECT_EQ(::getsid(started.pid), started.pid);
    while (readFile(log.path()) != "said\n")
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    stop(started, kPatience);
    EXPECT_FALSE(started.isRunning());
}

TEST(Process, IsMadeToEndWhenItDoesNotListen) {
    const Poco::TemporaryFile log;
    const Process deaf =
        startDetached("/bin/sh", {"-c", "trap '' TERM; echo ready; while :; do sleep 1; done"}, log.path());
    while (readFile(log.path()) != "ready\n")
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    stop(deaf, std::chrono::milliseconds(100));
    EXPECT_FALSE(deaf.isRunning());
}

TEST(Process, SaysWhichProgramIsMissing) {
    EXPECT_THROW(startDetached("/nonexistent/program", {}, "/dev/null"), Failure);
}

} // namespace
} // namespace kestrel
