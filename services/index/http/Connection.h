#pragma once

#include "handlers/Request.h"

#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/TCPServerConnection.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <mutex>

namespace Poco::Net {
class HTTPServerRequestImpl;
class HTTPServerResponseImpl;
class HTTPServerSession;
} // namespace Poco::Net

namespace kestrel::index {

/// What the service allows its clients.
struct Limits {
    std::size_t clients = 256;
    std::size_t requestBytes = 100U * 1024 * 1024;
    std::chrono::seconds idle{75};         ///< between requests
    std::chrono::seconds requestTime{120}; ///< from the first byte of a request (or the connect) to its last
    std::chrono::seconds answerTime{120};  ///< for sending an answer
};

/// The open connections. Shuts down those that exceed their time, and all of them at the end.
class Connections {
public:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        int socket;
        std::atomic<Clock::time_point> deadline;
    };
    using Handle = std::list<Entry>::iterator;

    Handle add(int socket, Clock::time_point deadline);
    void remove(Handle handle);
    std::size_t size() const;
    void shutdownOverdue();
    void shutdownAll();

private:
    mutable std::mutex mMutex;
    std::list<Entry> mEntries;
};

/// Makes the answer to a request; never throws.
using RequestHandler = std::function<Answer(Request&)>;

/// One client: reads its requests one after the other and sends the answers.
class Connection final : public Poco::Net::TCPServerConnection {
public:
    Connection(const Poco::Net::StreamSocket& socket, Connections& connections, const Limits& limits,
               Poco::Net::HTTPServerParams::Ptr params, const RequestHandler& handler);
    ~Connection() override;
    void run() override;

private:
    void serve(Poco::Net::HTTPServerSession& session);
    bool readBody(Poco::Net::HTTPServerRequestImpl& request, Poco::Net::HTTPServerResponseImpl& response,
                  std::string& body) const;
    void send(Poco::Net::HTTPServerResponseImpl& response, const Answer& answer, bool withBody);
    /// Answers instead of reading on, then takes in what the client still sends, so that it gets to see the
    /// answer.
    void refuseRest(Poco::Net::HTTPServerSession& session, const Answer& answer);
    void setDeadline(std::chrono::seconds time);

    Connections& mConnections;
    const Limits& mLimits;
    Poco::Net::HTTPServerParams::Ptr mParams;
    const RequestHandler& mHandler;
    Connections::Handle mHandle;
};

} // namespace kestrel::index
