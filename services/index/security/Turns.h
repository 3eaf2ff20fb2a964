#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace kestrel::index {

/// Lets so many at once through. Of those that wait, the latest goes first: however many guesses at passwords
/// have piled up, a login waits for those at work and not for the pile.
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
        latest.called.notify_one(); // under the lock: the waiter destroys it once it has gone
    }

    std::mutex mMutex;
    std::size_t mFree;
    std::vector<Waiting*> mWaiting;
};

} // namespace kestrel::index
