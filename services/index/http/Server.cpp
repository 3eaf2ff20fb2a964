#include "http/Server.h"

#include "http/ApiError.h"

#include <Poco/Net/Context.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SecureServerSocket.h>
#include <Poco/Net/TCPServerConnectionFactory.h>
#include <Poco/Net/TCPServerParams.h>
#include <fmt/format.h>
#include <openssl/ssl.h>
#include <spdlog/spdlog.h>

#include <utility>

namespace kestrel {

namespace {

/// Threads beyond the limit of clients, which tell further clients that there are too many.
constexpr int refusingThreads = 16;
constexpr int backlog = 512;

Poco::Net::SecureServerSocket listenOn(const Server::Options& options) {
    Poco::Net::Context::Params params;
    params.privateKeyFile = options.privateKey.string();
    params.certificateFile = options.certificate.string();
    params.verificationMode = Poco::Net::Context::VERIFY_NONE;
    params.loadDefaultCAs = false;
    Poco::Net::Context::Ptr context = new Poco::Net::Context(Poco::Net::Context::TLS_SERVER_USE, params);
    context->requireMinimumProtocol(Poco::Net::Context::PROTO_TLSV1_2);
    context->enableSessionCache(true, "kestrel-index");
    try {
        Poco::Net::SecureServerSocket socket(context);
        // Not sharing the port, which a plain bind would, is what makes a taken one an error.
        socket.bind(Poco::Net::SocketAddress(options.address, options.port), true, false);
        socket.listen(backlog);
        return socket;
    } catch (const Poco::Net::NetException& e) {
        throw AddressError(
            fmt::format("cannot listen on {}:{}: {}", options.address, options.port, e.displayText()));
    }
}

class ConnectionFactory final : public Poco::Net::TCPServerConnectionFactory {
public:
    ConnectionFactory(Connections& connections, const Limits& limits, const RequestHandler& handler)
        : connections_(connections), limits_(limits), handler_(handler),
          params_(new Poco::Net::HTTPServerParams) {
        params_->setKeepAlive(true);
        params_->setMaxKeepAliveRequests(0);
        params_->setTimeout(Poco::Timespan(limits.requestTime.count(), 0));
        params_->setKeepAliveTimeout(Poco::Timespan(limits.idle.count(), 0));
    }
    Poco::Net::TCPServerConnection* createConnection(const Poco::Net::StreamSocket& socket) override {
        return new Connection(socket, connections_, limits_, params_, handler_);
    }

private:
    Connections& connections_;
    const Limits& limits_;
    const RequestHandler& handler_;
    Poco::Net::HTTPServerParams::Ptr params_;
};

/// Browsers can send other content types to any address without asking; refusing them keeps web pages out.
void checkContentType(const Request& request) {
    if (request.body.empty()) return;
    const std::string& type = request.contentType;
    if (type.starts_with("application/json") || type.starts_with("application/x-ndjson") ||
        type.starts_with("application/vnd.elasticsearch+"))
        return;
    throw ApiError(406, "media_type_header_exception",
                   fmt::format("Content-Type header [{}] is not supported", type));
}

} // namespace

Server::Server(const Options& options, const Router& router, Authenticator& authenticator)
    : limits_(options.limits), router_(router), authenticator_(authenticator),
      handler_([this](Request& request) { return answer(request); }),
      threads_("client", 4, static_cast<int>(options.limits.clients) + refusingThreads) {
    Poco::Net::SecureServerSocket socket = listenOn(options);
    port_ = socket.address().port();
    Poco::Net::TCPServerParams::Ptr params = new Poco::Net::TCPServerParams;
    params->setMaxThreads(static_cast<int>(options.limits.clients) + refusingThreads);
    params->setMaxQueued(backlog);
    server_ = std::make_unique<Poco::Net::TCPServer>(new ConnectionFactory(connections_, limits_, handler_),
                                                     threads_, socket, params);
    server_->start();
    watchdog_ = std::thread([this] { watch(); });
}

Server::~Server() {
    server_->stop();
    connections_.shutdownAll();
    threads_.joinAll();
    {
        const std::lock_guard lock(stopMutex_);
        stop_ = true;
    }
    stopping_.notify_one();
    watchdog_.join();
}

void Server::watch() {
    std::unique_lock lock(stopMutex_);
    while (!stopping_.wait_for(lock, std::chrono::seconds(1), [this] { return stop_; }))
        connections_.shutdownOverdue();
}

Answer Server::answer(Request& request) {
    try {
        return dispatch(request);
    } catch (const ApiError& e) {
        Answer refusal = Answer::json(e.body(), e.status());
        if (e.status() == 401)
            refusal.headers.emplace_back("WWW-Authenticate", R"(Basic realm="security", charset="UTF-8")");
        return refusal;
    } catch (const std::exception& e) {
        spdlog::error("{} {}: {}", request.method, request.uri, e.what());
        return Answer::json(ApiError(500, "exception", e.what()).body(), 500);
    }
}

Answer Server::dispatch(Request& request) {
    request.user = authenticator_.authenticate(request.authorization, request.method, request.uri);
    checkContentType(request);
    return router_.dispatch(request);
}

} // namespace kestrel
