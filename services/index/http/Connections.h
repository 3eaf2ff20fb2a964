#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>

namespace kestrel::index {

/// What the service allows its clients.
struct Limits {
    std::size_t clients = 256;
    std::size_t requestBytes = 100U * 1024 * 1024;
    std::size_t memoryBytes = 1024U * 1024 * 1024; ///< bodies and answers of all requests together
    std::chrono::seconds handshake{10};
    std::chrono::seconds header{
        10}; ///< from the first byte of a request, or the handshake, to the end of its headers
    std::chrono::seconds login{60}; ///< guesses may keep it waiting
    std::chrono::seconds body{120};
    std::chrono::seconds work{60}; ///< for a search
    std::chrono::seconds answer{120};
    std::chrono::seconds idle{75}; ///< between requests
};

/// The open connections. Shuts down those that exceed their time, those that have to give way to others, and
/// all of them at the end. A connection that was shut down ends by itself.
class Connections {
public:
    enum class State {
        Anonymous, ///< nobody has said who it is: the first to give way
        Idle,      ///< between requests: gives way when there are no anonymous ones
        Working,
        Refused, ///< one too many: it is only told so
        Leaving, ///< has given way
    };

    using Clock = std::chrono::steady_clock;
    struct Entry {
        int socket;
        State state;
        Clock::time_point since;
        Clock::time_point deadline;
    };
    using Handle = std::list<Entry>::iterator;

    explicit Connections(std::size_t limit) : mLimit(limit) {}

    /// When there are too many, the one that has been anonymous or idle for longest gives way; when all are
    /// at work, the new one is refused.
    Handle add(int socket);
    void remove(Handle handle);
    /// From now on the connection is in the state, for so long at most.
    void set(Handle handle, State state, std::chrono::seconds time);
    State state(Handle handle) const;
    /// How many are in the state.
    std::size_t count(State state) const;

    void shutdownOverdue();
    void shutdownAll();

private:
    Handle longestIn(State state);

    const std::size_t mLimit;
    mutable std::mutex mMutex;
    std::list<Entry> mEntries;
};

} // namespace kestrel::index
