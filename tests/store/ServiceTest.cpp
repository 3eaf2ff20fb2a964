// The store against a real index service.

#include "tests/store/RealStore.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <new>
#include <numeric>
#include <pthread.h>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kestrel_test {
namespace {

using testing::HasSubstr;

using Service = RealStore;

TEST_F(Service, IdentifiersThatAreTooLongAreRefused) {
    const std::string tooLong(10000, 'x');
    EXPECT_EQ(mStore.LockEntry(tooLong, false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::LockEntry err: "));
    EXPECT_EQ(mStore.LockEntry(tooLong.substr(0, 512), false), KsNN_Success);
    EXPECT_EQ(mStore.UnlockEntry(tooLong.substr(0, 512), false), KsNN_Success);
    EXPECT_EQ(mStore.WriteToDB(someClip(), someSegment(tooLong, 0), false), KsNN_Error);
    int total = 1;
    EXPECT_EQ(mStore.GetTotalSegmentCount(total, false), KsNN_Success);
    EXPECT_EQ(total, 0);
}

TEST_F(Service, WrongPasswordIsAReportAndChangesNothing) {
    const std::string index = KsNNDatabase::getTranscriptIndex();
    IndexService::giveCredentialsToLibrary(sService->user(), "wrong");
    KsNNDatabase::setTranscriptIndex(index);
    EXPECT_EQ(mStore.testDefault(false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::testDefault err: "));
    EXPECT_EQ(mStore.LockEntry("clip", false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::CheckIndex err: "));
    sService->giveCredentialsToLibrary();
    KsNNDatabase::setTranscriptIndex(index);
    EXPECT_EQ(mStore.LockEntry("clip", false), KsNN_Success) << mStore.GetErrorStr();
}

/// Memory and a meeting point that forked processes share.
template <std::size_t Processes, std::size_t Rounds>
struct Arena {
    pthread_barrier_t barrier;
    std::array<std::array<int, Processes>, Rounds> lockCodes;
    std::array<std::array<int, Processes>, Rounds> unlockCodes;

    static Arena* create() {
        void* const memory =
            mmap(nullptr, sizeof(Arena), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        auto* const arena = new (memory) Arena{};
        pthread_barrierattr_t attributes;
        pthread_barrierattr_init(&attributes);
        pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
        pthread_barrier_init(&arena->barrier, &attributes, Processes);
        return arena;
    }
    void meet() { pthread_barrier_wait(&barrier); }
};

TEST_F(Service, OfManyProcessesExactlyOneGetsTheLock) {
    constexpr std::size_t kProcesses = 64;
    constexpr std::size_t kRounds = 12;
    ASSERT_EQ(mStore.CreateIndex(KsNNDatabase::getTranscriptIndex(), false), KsNN_Success);
    auto* const arena = Arena<kProcesses, kRounds>::create();
    std::vector<pid_t> children;
    for (std::size_t p = 0; p < kProcesses; ++p) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child > 0) {
            children.push_back(child);
            continue;
        }
        for (std::size_t round = 0; round < kRounds; ++round) {
            arena->meet();
            const KsNN_ErrorCode code = mStore.LockEntry("clip", false);
            arena->lockCodes[round][p] = code;
            arena->meet();
            if (code == KsNN_Success) arena->unlockCodes[round][p] = mStore.UnlockEntry("clip", false);
        }
        _exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (std::size_t round = 0; round < kRounds; ++round) {
        const auto& codes = arena->lockCodes[round];
        EXPECT_EQ(std::count(codes.begin(), codes.end(), KsNN_Success), 1) << round;
        EXPECT_EQ(std::count(codes.begin(), codes.end(), KsNN_LockConflict), kProcesses - 1) << round;
        EXPECT_THAT(arena->unlockCodes[round], testing::Each(KsNN_Success));
    }
    munmap(arena, sizeof(*arena));
}

TEST_F(Service, NothingAcknowledgedIsLostOrDoubledWhenTheServiceIsKilled) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    ASSERT_EQ(mStore.LockEntry("clip", false), KsNN_Success) << mStore.GetErrorStr();

    std::atomic<bool> killing{true};
    // A host that repeats each write until it is acknowledged; the store must see what is there already.
    int written = 0;
    std::thread writer([&] {
        while (killing || written < 20) {
            const KsNN_ErrorCode code = mStore.WriteToDB(someClip(), someSegment("clip", written), false);
            if (code == KsNN_Success) ++written;
        }
    });
    std::mt19937 random(seed);
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 400));
        sService->kill();
        sService->start();
    }
    killing = false;
    writer.join();

    KsNNDB_STTClipEntry entry;
    ASSERT_EQ(mStore.GetDBContents("clip", "p", entry, false, 2), KsNN_Success) << mStore.GetErrorStr();
    std::vector<int> found;
    for (const KsNNDBEntrySeg& seg : entry.segments)
        found.push_back(seg.segment);
    std::vector<int> expected(static_cast<std::size_t>(written));
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(mStore.UnlockEntry("clip", false), KsNN_Success);
}

} // namespace
} // namespace kestrel_test
