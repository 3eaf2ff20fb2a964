#include "http/Connection.h"

#include "base/ApiError.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponseImpl.h>
#include <Poco/Net/HTTPServerSession.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <array>
#include <sys/socket.h>
#include <utility>

namespace kestrel::index {

namespace {

using Poco::Net::HTTPResponse;
using Poco::Net::HTTPServerRequestImpl;
using Poco::Net::HTTPServerResponseImpl;
using Poco::Net::HTTPServerSession;

constexpr std::size_t kDrainedAtMost = 1024U * 1024 * 1024;
const Poco::Timespan lingering(2, 0);

Answer errorAnswer(const ApiError& error) {
    return Answer::json(error.body(), error.status());
}

const Answer& tooLarge(std::size_t limit) {
    static const Answer answer =
        errorAnswer({413, "content_too_long_exception",
                     fmt::format("the request body is longer than [{}] bytes", limit)});
    return answer;
}

/// Takes in what the client still sends, so that it gets to read the answer instead of an error.
void drain(std::istream& stream) {
    std::array<char, 65536> scrap{};
    std::size_t drained = 0;
    while (stream.read(scrap.data(), scrap.size()) && drained < kDrainedAtMost)
        drained += scrap.size();
}

} // namespace

Connections::Handle Connections::add(int socket, Clock::time_point deadline) {
    const std::lock_guard lock(mMutex);
    return mEntries.emplace(mEntries.end(), socket, deadline);
}

void Connections::remove(Handle handle) {
    const std::lock_guard lock(mMutex);
    mEntries.erase(handle);
}

std::size_t Connections::size() const {
    const std::lock_guard lock(mMutex);
    return mEntries.size();
}

void Connections::shutdownOverdue() {
    const auto now = Clock::now();
    const std::lock_guard lock(mMutex);
    for (const Entry& entry : mEntries)
        if (entry.deadline.load() < now) ::shutdown(entry.socket, SHUT_RDWR);
}

void Connections::shutdownAll() {
    const std::lock_guard lock(mMutex);
    for (const Entry& entry : mEntries)
        ::shutdown(entry.socket, SHUT_RD);
}

Connection::Connection(const Poco::Net::StreamSocket& socket, Connections& connections, const Limits& limits,
                       Poco::Net::HTTPServerParams::Ptr params, const RequestHandler& handler)
    : TCPServerConnection(socket), mConnections(connections), mLimits(limits), mParams(std::move(params)),
      mHandler(handler), mHandle(connections.add(static_cast<int>(socket.impl()->sockfd()),
                                                 Connections::Clock::now() + limits.requestTime)) {
}

Connection::~Connection() {
    mConnections.remove(mHandle);
}

void Connection::run() {
    HTTPServerSession session(socket(), mParams);
    try {
        if (mConnections.size() > mLimits.clients) {
            session.hasMoreRequests();
            refuseRest(session, errorAnswer({429, "es_rejected_execution_exception",
                                             fmt::format("too many clients: at most [{}] are served at once",
                                                         mLimits.clients)}));
            return;
        }
        setDeadline(mLimits.requestTime);
        while (session.hasMoreRequests()) {
            setDeadline(mLimits.requestTime);
            serve(session);
            if (!session.getKeepAlive()) break;
            setDeadline(mLimits.idle + mLimits.requestTime);
        }
    } catch (const Poco::Net::NoMessageException&) {
        // The client has left.
    } catch (const Poco::Net::MessageException& e) {
        refuseRest(session, errorAnswer({400, "too_long_http_line_exception",
                                         fmt::format("the request line or a header cannot be read: {}",
                                                     e.displayText())}));
    } catch (const Poco::Exception& e) {
        spdlog::debug("connection ended: {}", e.displayText());
    }
}

void Connection::setDeadline(std::chrono::seconds time) {
    mHandle->deadline = Connections::Clock::now() + time;
}

void Connection::serve(HTTPServerSession& session) {
    HTTPServerResponseImpl response(session);
    HTTPServerRequestImpl received(response, session, mParams.get());
    response.setVersion(received.getVersion());
    response.setKeepAlive(received.getKeepAlive() && session.canKeepAlive());

    Request request;
    request.method = received.getMethod();
    request.contentType = received.getContentType();
    request.authorization = received.get("Authorization", "");
    Answer answer;
    if (!readBody(received, response, request.body)) {
        response.setKeepAlive(false);
        answer = tooLarge(mLimits.requestBytes);
    } else {
        try {
            parseTarget(received.getURI(), request);
            mHandle->deadline = Connections::Clock::time_point::max();
            answer = mHandler(request);
        } catch (const ApiError& e) {
            answer = errorAnswer(e);
        }
    }
    setDeadline(mLimits.answerTime);
    session.setKeepAlive(response.getKeepAlive());
    send(response, answer, request.method != "HEAD");
    if (answer.status == 413) drain(received.stream());
}

bool Connection::readBody(HTTPServerRequestImpl& request, HTTPServerResponseImpl& response,
                          std::string& body) const {
    const bool lengthKnown = request.hasContentLength();
    // Without a length there is no body; the stream would wait for the client to hang up.
    if (!lengthKnown && !request.getChunkedTransferEncoding()) return true;
    if (lengthKnown && static_cast<std::uint64_t>(request.getContentLength64()) > mLimits.requestBytes)
        return false;
    if (request.getExpectContinue()) response.sendContinue();
    if (lengthKnown) body.reserve(static_cast<std::size_t>(request.getContentLength64()));
    std::array<char, 65536> chunk{};
    std::istream& stream = request.stream();
    while (stream.read(chunk.data(), chunk.size()) || stream.gcount() > 0) {
        body.append(chunk.data(), static_cast<std::size_t>(stream.gcount()));
        if (body.size() > mLimits.requestBytes) return false;
    }
    if (lengthKnown && body.size() != static_cast<std::size_t>(request.getContentLength64()))
        throw Poco::Net::NoMessageException("the body was cut off");
    return true;
}

void Connection::send(HTTPServerResponseImpl& response, const Answer& answer, bool withBody) {
    response.setStatusAndReason(static_cast<HTTPResponse::HTTPStatus>(answer.status));
    response.setContentType("application/json; charset=UTF-8");
    for (const auto& [name, value] : answer.headers)
        response.set(name, value);
    response.setContentLength64(static_cast<Poco::Int64>(answer.body.size()));
    std::ostream& stream = response.send();
    if (withBody) stream.write(answer.body.data(), static_cast<std::streamsize>(answer.body.size()));
    stream.flush();
}

void Connection::refuseRest(HTTPServerSession& session, const Answer& answer) {
    {
        HTTPServerResponseImpl response(session);
        response.setVersion(Poco::Net::HTTPMessage::HTTP_1_1);
        response.setKeepAlive(false);
        send(response, answer, true);
    }
    socket().setReceiveTimeout(lingering);
    std::array<char, 65536> scrap{};
    for (std::size_t drained = 0; drained < kDrainedAtMost;) {
        const int received = socket().receiveBytes(scrap.data(), static_cast<int>(scrap.size()));
        if (received <= 0) break;
        drained += static_cast<std::size_t>(received);
    }
}

} // namespace kestrel::index
