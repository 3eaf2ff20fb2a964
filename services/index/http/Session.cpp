#include "http/Session.h"

#include "base/Work.h"

#include <boost/asio/write.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <array>
#include <poll.h>
#include <string_view>
#include <utility>

namespace kestrel::index {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using State = Connections::State;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kHeaderBytes = 16UL * 1024;
constexpr std::size_t kReadBytes = 64UL * 1024;
constexpr std::size_t kBufferBytes = 128UL * 1024;
constexpr std::size_t kDrainedAtMost = 1024UL * 1024 * 1024;
constexpr std::chrono::seconds kLingering{5};

std::string toString(beast::string_view text) {
    return {text.data(), text.size()};
}

ApiError malformed(const beast::error_code& error, std::size_t bodyLimit) {
    if (error == http::error::body_limit)
        return {413, "content_too_long_exception",
                fmt::format("the request body is longer than [{}] bytes", bodyLimit)};
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return {400, "too_long_http_line_exception",
                fmt::format("the request line and headers are longer than [{}] bytes", kHeaderBytes)};
    return {400, "bad_request_exception", fmt::format("this is not an HTTP request: {}", error.message())};
}

ApiError tooSlow() {
    return {408, "request_timeout_exception", "the request took too long to arrive"};
}

/// The request is malformed, as opposed to a connection that has ended.
bool isMalformed(const beast::error_code& error) {
    return error.category() == http::make_error_code(http::error::end_of_stream).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

} // namespace

Session::Session(asio::ip::tcp::socket socket, const SessionContext& context)
    : mContext(context), mStream(std::move(socket), context.tls),
      mHandle(context.connections.add(mStream.next_layer().native_handle())), mBuffer(kBufferBytes) {
    set(State::Anonymous, mContext.limits.handshake);
}

Session::~Session() {
    mContext.connections.remove(mHandle);
}

void Session::set(State state, std::chrono::seconds time) {
    mContext.connections.set(mHandle, state, time);
}

void Session::run() {
    beast::error_code error;
    mStream.next_layer().set_option(asio::ip::tcp::no_delay(true), error);
    mStream.handshake(asio::ssl::stream_base::server, error);
    if (error) {
        spdlog::debug("no TLS connection: {}",
                      mContext.connections.overdue(mHandle) ? "it took too long" : error.message());
        return;
    }
    if (mContext.connections.state(mHandle) == State::Refused) {
        refuse({429, "es_rejected_execution_exception",
                fmt::format("too many clients: at most [{}] are served at once", mContext.limits.clients)});
        return;
    }
    while (serve()) {
    }
}

bool Session::serve() {
    Parser parser;
    parser.header_limit(kHeaderBytes);
    parser.body_limit(mContext.limits.requestBytes);
    parser.eager(true);
    if (!readHeader(parser)) return false;

    Request request;
    request.method = toString(parser.get().method_string());
    request.uri = toString(parser.get().target());
    request.contentType = toString(parser.get()[http::field::content_type]);
    request.authorization = toString(parser.get()[http::field::authorization]);
    request.hasBody = !parser.is_done();
    const bool withBody = request.method != "HEAD";
    MemoryBudget::Lease memory(mContext.memory);
    try {
        set(mKnown ? State::Working : State::Anonymous, mContext.limits.login);
        mContext.handler.admit(request);
        mKnown = true;
        if (!readBody(parser, memory)) return false;
    } catch (const ApiError& e) {
        if (!parser.is_done()) {
            refuse(e, withBody);
            return false;
        }
        return send(errorAnswer(e), withBody, parser.get().keep_alive());
    }
    request.body = std::move(parser.get().body());
    if (request.body.starts_with(kByteOrderMark)) request.body.erase(0, kByteOrderMark.size());
    set(State::Working, std::chrono::hours(24));
    return send(answer(request, memory), withBody, parser.get().keep_alive());
}

bool Session::readHeader(Parser& parser) {
    beast::error_code error;
    if (mKnown && mBuffer.size() == 0) {
        set(State::Idle, mContext.limits.idle);
        mBuffer.commit(mStream.read_some(mBuffer.prepare(kReadBytes), error));
        if (error) return false;
    }
    set(mKnown ? State::Working : State::Anonymous, mContext.limits.header);
    http::read_header(mStream, mBuffer, parser, error);
    if (error && mContext.connections.overdue(mHandle))
        refuse(tooSlow());
    else if (isMalformed(error))
        refuse(malformed(error, mContext.limits.requestBytes));
    return !error;
}

bool Session::readBody(Parser& parser, MemoryBudget::Lease& memory) {
    set(State::Working, mContext.limits.body);
    if (const auto length = parser.content_length()) memory.take(static_cast<std::size_t>(*length));
    beast::error_code error;
    if (!parser.is_done() && beast::iequals(parser.get()[http::field::expect], "100-continue"))
        asio::write(mStream, asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")), error);
    while (!error && !parser.is_done()) {
        http::read_some(mStream, mBuffer, parser, error);
        const std::size_t held = parser.get().body().capacity();
        if (held > memory.bytes()) memory.take(held - memory.bytes());
    }
    if (error && mContext.connections.overdue(mHandle)) throw tooSlow();
    if (isMalformed(error)) throw malformed(error, mContext.limits.requestBytes);
    return !error;
}

Answer Session::answer(const Request& request, MemoryBudget::Lease& memory) {
    Work work(mContext.limits.work, memory, [this] { return abandoned(); });
    const Work::Scope scope(&work);
    return mContext.handler.answer(request);
}

bool Session::send(Answer answer, bool withBody, bool keepAlive) {
    set(State::Working, mContext.limits.answer);
    http::response<http::string_body> response;
    response.version(11);
    response.result(static_cast<unsigned>(answer.status));
    response.keep_alive(keepAlive);
    response.set(http::field::content_type, "application/json; charset=UTF-8");
    for (const auto& [name, value] : answer.headers)
        response.set(name, value);
    response.content_length(answer.body.size());
    if (withBody) response.body() = std::move(answer.body);
    beast::error_code error;
    http::write(mStream, response, error);
    return !error && keepAlive;
}

void Session::refuse(const ApiError& error, bool withBody) {
    send(errorAnswer(error), withBody, false);
    drain();
}

void Session::drain() {
    set(mKnown ? State::Idle : State::Anonymous, kLingering);
    mBuffer.clear();
    beast::error_code error;
    for (std::size_t drained = 0; drained < kDrainedAtMost && !error;)
        drained += mStream.read_some(mBuffer.prepare(kReadBytes), error);
}

bool Session::abandoned() {
    pollfd watched{mStream.next_layer().native_handle(), POLLRDHUP, 0};
    return poll(&watched, 1, 0) > 0;
}

} // namespace kestrel::index
