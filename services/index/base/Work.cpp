#include "base/Work.h"

#include "base/ApiError.h"

namespace kestrel::index {

namespace {

/// Polling the client's socket costs a system call.
constexpr auto kLookInterval = std::chrono::milliseconds(20);

} // namespace

Work*& Work::current() {
    thread_local Work* work = nullptr;
    return work;
}

Work::Until::Until(std::optional<Clock::time_point> end) : mWork(end ? current() : nullptr) {
    if (mWork != nullptr) mWork->mUntil = *end;
}

Work::Until::~Until() {
    if (mWork != nullptr) mWork->mUntil = Clock::time_point::max();
}

void checkStillWanted() {
    Work* const work = Work::current();
    if (work == nullptr) return;
    const auto now = Work::Clock::now();
    if (now >= work->mDeadline)
        throw ApiError(504, "search_timeout_exception", "Time exceeded: ask for less, or narrow the query");
    if (now >= work->mUntil) throw TimedOut();
    if (now < work->mNextLook) return;
    work->mNextLook = now + kLookInterval;
    if (work->mHeld != nullptr && now - work->mHeldSince > work->mHeldAtMost && work->mHeld->writerWaits())
        throw ApiError(
            503, "es_rejected_execution_exception",
            "the search took too long while writes waited for it: ask for less, or narrow the query");
    if (work->mAbandoned())
        throw ApiError(503, "task_cancelled_exception", "the client has gone, or the service is stopping");
}

void takeMemory(std::size_t bytes) {
    if (Work* const work = Work::current()) work->mMemory.take(bytes);
}

} // namespace kestrel::index
