#pragma once

#include "base/FairSharedMutex.h"
#include "base/MemoryBudget.h"

#include <chrono>
#include <functional>
#include <optional>

namespace kestrel::index {

/// The limits of the request that a thread works on. Code that may take long or need much memory checks them,
/// however deep in a query it is. A thread without a request is never interrupted.
class Work {
public:
    using Clock = std::chrono::steady_clock;

    /// Shorter than the timeout after which clients repeat a write.
    static constexpr std::chrono::milliseconds kHeldAtMost{5'000};

    /// abandoned: whether the client is gone. heldAtMost: how long the request may keep a writer waiting.
    Work(std::chrono::milliseconds time, MemoryBudget::Lease& memory, std::function<bool()> abandoned,
         std::chrono::milliseconds heldAtMost = kHeldAtMost)
        : mDeadline(Clock::now() + time), mHeldAtMost(heldAtMost), mMemory(memory),
          mAbandoned(std::move(abandoned)) {}

    /// Makes it the current thread's work during its lifetime.
    class Scope {
    public:
        explicit Scope(Work* work) : mBefore(current()) { current() = work; }
        ~Scope() { current() = mBefore; }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Work* mBefore;
    };

    /// Makes checkStillWanted throw TimedOut from the given time on, during its lifetime. Does nothing
    /// without a time or a current work.
    class Until {
    public:
        explicit Until(std::optional<Clock::time_point> end);
        ~Until();
        Until(const Until&) = delete;
        Until& operator=(const Until&) = delete;

    private:
        Work* const mWork;
    };

    /// Tells the current work which lock it holds during its lifetime.
    class Hold {
    public:
        explicit Hold(const FairSharedMutex& mutex) : mWork(current()) {
            if (mWork == nullptr) return;
            mWork->mHeld = &mutex;
            mWork->mHeldSince = Clock::now();
        }
        ~Hold() {
            if (mWork != nullptr) mWork->mHeld = nullptr;
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        Work* mWork;
    };

    /// The current thread's, or null.
    static Work*& current();

private:
    friend void checkStillWanted();
    friend void takeMemory(std::size_t bytes);

    Clock::time_point mDeadline;
    Clock::time_point mUntil = Clock::time_point::max();
    Clock::time_point mNextLook{};
    const FairSharedMutex* mHeld = nullptr;
    Clock::time_point mHeldSince{};
    std::chrono::milliseconds mHeldAtMost;
    MemoryBudget::Lease& mMemory;
    std::function<bool()> mAbandoned;
};

/// The time limit that the client has set is exceeded.
class TimedOut {};

/// Throws an ApiError when the current request's time is up (504), its client is gone, or it has kept a
/// writer waiting for too long (503), and TimedOut when the client's own time limit is exceeded. Costs a look
/// at the clock.
void checkStillWanted();

/// Charges bytes of the current request to the memory that all requests share. Throws an ApiError when it is
/// used up (429).
void takeMemory(std::size_t bytes);

/// For inner loops: checks once every few thousand calls.
class Patience {
public:
    void check() {
        if ((++mCalls & 0xFFFU) == 0) checkStillWanted();
    }

private:
    unsigned mCalls = 0;
};

} // namespace kestrel::index
