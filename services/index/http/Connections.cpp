#include "http/Connections.h"

#include <algorithm>
#include <sys/socket.h>

namespace kestrel::index {

namespace {

constexpr std::chrono::seconds kLastWords{5};

} // namespace

Connections::Handle Connections::add(int socket) {
    const std::lock_guard lock(mMutex);
    const auto served = std::count_if(mEntries.begin(), mEntries.end(), [](const Entry& entry) {
        return entry.state != State::Refused && entry.state != State::Leaving;
    });
    State state = State::Anonymous;
    if (static_cast<std::size_t>(served) >= mLimit) {
        Handle leaving = longestIn(State::Anonymous);
        if (leaving == mEntries.end()) leaving = longestIn(State::Idle);
        if (leaving == mEntries.end()) {
            state = State::Refused;
        } else {
            leaving->state = State::Leaving;
            ::shutdown(leaving->socket, SHUT_RDWR);
        }
    }
    return mEntries.insert(mEntries.end(),
                           Entry{socket, state, Clock::now(), Clock::time_point::max(), false});
}

Connections::Handle Connections::longestIn(State state) {
    Handle longest = mEntries.end();
    for (Handle entry = mEntries.begin(); entry != mEntries.end(); ++entry)
        if (entry->state == state && (longest == mEntries.end() || entry->since < longest->since))
            longest = entry;
    return longest;
}

void Connections::remove(Handle handle) {
    const std::lock_guard lock(mMutex);
    mEntries.erase(handle);
}

void Connections::set(Handle handle, State state, std::chrono::seconds time) {
    const std::lock_guard lock(mMutex);
    const auto now = Clock::now();
    handle->deadline = now + time;
    if (handle->state == state || handle->state == State::Refused || handle->state == State::Leaving) return;
    handle->state = state;
    handle->since = now;
}

Connections::State Connections::state(Handle handle) const {
    const std::lock_guard lock(mMutex);
    return handle->state;
}

std::size_t Connections::count(State state) const {
    const std::lock_guard lock(mMutex);
    return static_cast<std::size_t>(std::count_if(mEntries.begin(), mEntries.end(),
                                                  [&](const Entry& entry) { return entry.state == state; }));
}

bool Connections::overdue(Handle handle) const {
    const std::lock_guard lock(mMutex);
    return handle->overdue;
}

void Connections::shutdownOverdue() {
    const auto now = Clock::now();
    const std::lock_guard lock(mMutex);
    for (Entry& entry : mEntries) {
        if (entry.deadline >= now) continue;
        ::shutdown(entry.socket, entry.overdue ? SHUT_RDWR : SHUT_RD);
        entry.overdue = true;
        entry.deadline = now + kLastWords;
    }
}

void Connections::shutdownAll() {
    const std::lock_guard lock(mMutex);
    for (const Entry& entry : mEntries)
        ::shutdown(entry.socket, SHUT_RD);
}

} // namespace kestrel::index
