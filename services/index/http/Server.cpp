#include "http/Server.h"

#include "base/ApiError.h"

#include <Poco/Net/Context.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SecureServerSocket.h>
#include <Poco/Net/TCPServerConnectionFactory.h>
#include <Poco/Net/TCPServerParams.h>
#include <fmt/format.h>
#include <openssl/ssl.h>
#include <spdlog/spdlog.h>

#include <utility>

namespace kestrel::index {

namespace {

/// Threads beyond the limit of clients, which tell further clients that there are too many.
constexpr int kRefusingThreads = 16;
constexpr int kBacklog = 512;

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
        socket.listen(kBacklog);
        return socket;
    } catch (const Poco::Net::NetException& e) {
        throw AddressError(
            fmt::format("cannot listen on {}:{}: {}", options.address, options.port, e.displayText()));
    }
}

class ConnectionFactory final : public Poco::Net::TCPServerConnectionFactory {
public:
    ConnectionFactory(Connections& connections, const Limits& limits, const RequestHandler& handler)
        : mConnections(connections), mLimits(limits), mHandler(handler),
          mParams(new Poco::Net::HTTPServerParams) {
        mParams->setKeepAlive(true);
        mParams->setMaxKeepAliveRequests(0);
        mParams->setTimeout(Poco::Timespan(limits.requestTime.count(), 0));
        mParams->setKeepAliveTimeout(Poco::Timespan(limits.idle.count(), 0));
    }
    Poco::Net::TCPServerConnection* createConnection(const Poco::Net::StreamSocket& socket) override {
        return new Connection(socket, mConnections, mLimits, mParams, mHandler);
    }

private:
    Connections& mConnections;
    const Limits& mLimits;
    const RequestHandler& mHandler;
    Poco::Net::HTTPServerParams::Ptr mParams;
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
    : mLimits(options.limits), mRouter(router), mAuthenticator(authenticator),
      mHandler([this](Request& request) { return answer(request); }),
      mThreads("client", 4, static_cast<int>(options.limits.clients) + kRefusingThreads) {
    Poco::Net::SecureServerSocket socket = listenOn(options);
    mPort = socket.address().port();
    Poco::Net::TCPServerParams::Ptr params = new Poco::Net::TCPServerParams;
    params->setMaxThreads(static_cast<int>(options.limits.clients) + kRefusingThreads);
    params->setMaxQueued(kBacklog);
    mServer = std::make_unique<Poco::Net::TCPServer>(new ConnectionFactory(mConnections, mLimits, mHandler),
                                                     mThreads, socket, params);
    mServer->start();
    mWatchdog = std::thread([this] { watch(); });
}

Server::~Server() {
    mServer->stop();
    mConnections.shutdownAll();
    mThreads.joinAll();
    {
        const std::lock_guard lock(mStopMutex);
        mStop = true;
    }
    mStopping.notify_one();
    mWatchdog.join();
}

void Server::watch() {
    std::unique_lock lock(mStopMutex);
    while (!mStopping.wait_for(lock, std::chrono::seconds(1), [this] { return mStop; }))
        mConnections.shutdownOverdue();
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
    request.user = mAuthenticator.authenticate(request.authorization, request.method, request.uri);
    checkContentType(request);
    return mRouter.dispatch(request);
}

} // namespace kestrel::index
