#pragma once

#include "base/FairSharedMutex.h"
#include "base/MemoryBudget.h"

#include <chrono>
#include <functional>
#include <optional>

namespace kestrel::index {

/// The request that a thread works on, so that what may take long or grow large can ask whether it still
/// should, however deep in a query it is. A thread without one is never interrupted.
class Work {
public:
    using Clock = std::chrono::steady_clock;

    /// Shorter than the time after which clients give up a write and try it again.
    static constexpr std::chrono::milliseconds kHeldAtMost{5'000};

    /// abandoned: whether nobody waits for the answer any more. heldAtMost: how long the request may keep a
    /// waiting writer out.
    Work(std::chrono::milliseconds time, MemoryBudget::Lease& memory, std::function<bool()> abandoned,
         std::chrono::milliseconds heldAtMost = kHeldAtMost)
        : mDeadline(Clock::now() + time), mHeldAtMost(heldAtMost), mMemory(memory),
          mAbandoned(std::move(abandoned)) {}

    /// Makes the work that of the current thread for as long as it lives.
    class Scope {
    public:
        explicit Scope(Work* work) : mBefore(current()) { current() = work; }
        ~Scope() { current() = mBefore; }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Work* mBefore;
    };

    /// Has the current thread's work throw TimedOut from a moment on, for as long as this lives. Without a
    /// moment, or work, it does nothing.
    class Until {
    public:
        explicit Until(std::optional<Clock::time_point> end);
        ~Until();
        Until(const Until&) = delete;
        Until& operator=(const Until&) = delete;

    private:
        Work* const mWork;
    };

    /// Tells the current work which lock it shares for as long as this lives.
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

/// The time that the client itself gave a part of the work is up.
class TimedOut {};

/// Throws an ApiError once the current request's time is up (504), its client is gone or it has kept a writer
/// waiting for too long (503), and TimedOut once the time that the client gave is. Costs a look at the clock.
void checkStillWanted();

/// Counts bytes that the current request needs against the memory that all requests share. Throws an ApiError
/// when it is used up (429).
void takeMemory(std::size_t bytes);

/// For inner loops: checks once in several thousand calls.
class Patience {
public:
    void check() {
        if ((++mCalls & 0xFFFU) == 0) checkStillWanted();
    }

private:
    unsigned mCalls = 0;
};

} // namespace kestrel::index
