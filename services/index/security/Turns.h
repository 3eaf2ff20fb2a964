#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace kestrel::index {

/// A semaphore that admits the latest waiting thread first: however many password guesses are waiting, a
/// login only waits for those in progress.
class Turns {
public:
    explicit Turns(std::size_t atOnce) : mFree(atOnce) {}

    class Turn {
    public:
        explicit Turn(Turns& turns) : mTurns(turns) { turns.enter(); }
        ~Turn() { mTurns.leave(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        Turns& mTurns;
    };

private:
    struct Waiting {
        std::condition_variable called;
        bool mayGo = false;
    };

    void enter() {
        std::unique_lock lock(mMutex);
        if (mFree > 0) {
            --mFree;
            return;
        }
        Waiting self;
        mWaiting.push_back(&self);
        self.called.wait(lock, [&self] { return self.mayGo; });
    }

    void leave() {
        const std::lock_guard lock(mMutex);
        if (mWaiting.empty()) {
            ++mFree;
            return;
        }
        Waiting& latest = *mWaiting.back();
        mWaiting.pop_back();
        latest.mayGo = true;
        latest.called.notify_one(); // under the lock, since the waiter destroys it afterwards
    }

    std::mutex mMutex;
    std::size_t mFree;
    std::vector<Waiting*> mWaiting;
};

} // namespace kestrel::index
