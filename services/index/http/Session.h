#pragma once

#include "base/MemoryBudget.h"
#include "handlers/Request.h"
#include "http/Connections.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

#include <chrono>
#include <functional>

namespace kestrel::index {

/// Makes answers to requests. Neither throws anything but ApiError.
struct RequestHandler {
    /// Looks at the headers alone, before the body is received: who it is, and whether the body may come.
    std::function<void(Request&)> admit;
    std::function<Answer(const Request&)> answer;
};

/// What the sessions of one server share.
struct SessionContext {
    const Limits& limits;
    Connections& connections;
    MemoryBudget& memory;
    const RequestHandler& handler;
    boost::asio::ssl::context& tls;
};

/// One client: reads its requests one after the other and sends the answers. Blocks; the registry of
/// connections shuts the socket down when its time is up.
class Session {
public:
    Session(boost::asio::ip::tcp::socket socket, const SessionContext& context);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void run();

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

    /// One request; whether another one may follow.
    bool serve();
    bool readHeader(Parser& parser);
    bool readBody(Parser& parser, MemoryBudget::Lease& memory);
    Answer answer(const Request& request, MemoryBudget::Lease& memory);
    bool send(Answer answer, bool withBody, bool keepAlive);
    /// Answers instead of reading on.
    void refuse(const ApiError& error, bool withBody = true);
    /// Takes in what the client still sends, so that it gets to read the answer instead of an error.
    void drain();
    bool abandoned();
    void set(Connections::State state, std::chrono::seconds time);

    const SessionContext& mContext;
    boost::beast::ssl_stream<boost::asio::ip::tcp::socket> mStream;
    Connections::Handle mHandle;
    boost::beast::flat_buffer mBuffer;
    bool mKnown = false; ///< has made a request in the name of a user
};

} // namespace kestrel::index
