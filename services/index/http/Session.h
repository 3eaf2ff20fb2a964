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

/// Answers requests.
struct RequestHandler {
    /// Authenticates and checks the headers, before the body is received. Throws only ApiError.
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

/// One client: reads its requests one after the other and sends the answers. Blocks; Connections shuts the
/// socket down when its time is up.
class Session {
public:
    Session(boost::asio::ip::tcp::socket socket, const SessionContext& context);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void run();

private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

    /// Handles one request; whether another one may follow.
    bool serve();
    bool readHeader(Parser& parser);
    bool readBody(Parser& parser, MemoryBudget::Lease& memory);
    Answer answer(const Request& request, MemoryBudget::Lease& memory);
    bool send(Answer answer, bool withBody, bool keepAlive);
    /// Sends an error without reading the rest of the request.
    void refuse(const ApiError& error, bool withBody = true);
    /// Discards what the client still sends, so that it reads the answer instead of a connection error.
    void drain();
    bool abandoned();
    void set(Connections::State state, std::chrono::seconds time);

    const SessionContext& mContext;
    boost::beast::ssl_stream<boost::asio::ip::tcp::socket> mStream;
    Connections::Handle mHandle;
    boost::beast::flat_buffer mBuffer;
    bool mKnown = false; ///< has been authenticated
};

} // namespace kestrel::index
