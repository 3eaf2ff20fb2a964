#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>

namespace kestrel::index {

/// Limits on clients and their requests.
struct Limits {
    std::size_t clients = 256;
    std::size_t requestBytes = std::size_t{100} * 1024 * 1024;
    std::size_t memoryBytes = std::size_t{1024} * 1024 * 1024; ///< of all requests together
    std::chrono::seconds handshake{20};
    /// From the first byte of a request, or the handshake, to the end of its headers.
    std::chrono::seconds header{20};
    std::chrono::seconds login{60}; ///< may have to wait for others
    std::chrono::seconds body{120};
    std::chrono::seconds work{60}; ///< for a search
    std::chrono::seconds answer{120};
    std::chrono::seconds idle{75}; ///< between requests
};

/// The open connections. Shuts down the sockets of those that exceed their time, those that have to give way
/// to others, and all of them at the end; their threads then end by themselves. A client that is too slow can
/// still be told so.
class Connections {
public:
    enum class State {
        Anonymous, ///< not authenticated: gives way first
        Idle,      ///< between requests: gives way when none is anonymous
        Working,
        Refused, ///< over the limit: only receives an error
        Leaving, ///< has given way
    };

    using Clock = std::chrono::steady_clock;
    struct Entry {
        int socket = -1;
        State state = State::Anonymous;
        Clock::time_point since;
        Clock::time_point deadline;
        bool overdue = false;
    };
    using Handle = std::list<Entry>::iterator;

    explicit Connections(std::size_t limit) : mLimit(limit) {}

    /// When there are too many, the one that has been anonymous or idle the longest gives way; when all are
    /// working, the new one is refused.
    Handle add(int socket);
    void remove(Handle handle);
    /// Changes the state of the connection and limits the time that it may stay in it.
    void set(Handle handle, State state, std::chrono::seconds time);
    State state(Handle handle) const;
    /// Number of connections in the state.
    std::size_t count(State state) const;

    /// Those that exceed their time read nothing more; a little later they write nothing more either.
    void shutdownOverdue();
    /// Whether the connection has exceeded a time, and so reads nothing more.
    bool overdue(Handle handle) const;
    void shutdownAll();

private:
    Handle longestIn(State state);

    const std::size_t mLimit;
    mutable std::mutex mMutex;
    std::list<Entry> mEntries;
};

} // namespace kestrel::index
