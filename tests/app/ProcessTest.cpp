#include "apps/kestrel/services/Process.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"

#include <Poco/TemporaryFile.h>
#include <gtest/gtest.h>

#include <thread>

namespace kestrel {
namespace {

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
