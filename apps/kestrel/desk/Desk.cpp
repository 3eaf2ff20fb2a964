#include "apps/kestrel/desk/Desk.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/desk/Gate.h"
#include "apps/kestrel/desk/Pages.h"
#include "apps/kestrel/desk/Parts.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/ThreadPool.h>
#include <fmt/format.h>

#include <utility>

namespace kestrel::desk {

namespace {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

/// Players and event streams keep a thread each while they read.
constexpr int kMostThreads = 64;
constexpr int kIdleSeconds = 60;

/// Scripts, styles and media come from here and from nowhere else, and nothing here may be framed.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; media-src 'self'; connect-src "
    "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'";

void setSecurityHeaders(HTTPServerResponse& response) {
    response.set("Content-Security-Policy", kPolicy);
    response.set("X-Content-Type-Options", "nosniff");
    response.set("Referrer-Policy", "no-referrer");
    response.set("Cross-Origin-Resource-Policy", "same-origin");
    response.set("Cross-Origin-Opener-Policy", "same-origin");
    response.set("Cache-Control", "no-store");
}

Poco::Net::ServerSocket listen(std::uint16_t port) {
    try {
        return Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", port));
    } catch (const Poco::Net::NetException&) {
        throw Failure(
            fmt::format("port {} is taken by another program: choose another one with --port (0: any "
                        "free one)",
                        port));
    }
}

class FunctionHandler : public Poco::Net::HTTPRequestHandler {
public:
    explicit FunctionHandler(std::function<void(HTTPServerRequest&, HTTPServerResponse&)> answer)
        : mAnswer(std::move(answer)) {}
    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        mAnswer(request, response);
    }

private:
    std::function<void(HTTPServerRequest&, HTTPServerResponse&)> mAnswer;
};

class FunctionFactory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit FunctionFactory(std::function<void(HTTPServerRequest&, HTTPServerResponse&)> answer)
        : mAnswer(std::move(answer)) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest& /*request*/) override {
        return new FunctionHandler(mAnswer);
    }

private:
    std::function<void(HTTPServerRequest&, HTTPServerResponse&)> mAnswer;
};

Poco::Net::HTTPServerParams::Ptr parameters() {
    Poco::Net::HTTPServerParams::Ptr made = new Poco::Net::HTTPServerParams;
    made->setMaxThreads(kMostThreads);
    made->setTimeout(Poco::Timespan(kIdleSeconds, 0));
    made->setKeepAliveTimeout(Poco::Timespan(kIdleSeconds, 0));
    return made;
}

} // namespace

class Desk::Server {
public:
    Server(const Home& home, std::uint16_t port, const std::filesystem::path& pages)
        : mSocket(listen(port)), mGate(mSocket.address().port()), mPages(pages), mParts(home),
          mThreads(2, kMostThreads),
          mServer(new FunctionFactory([this](auto& request, auto& response) { answer(request, response); }),
                  mThreads, mSocket, parameters()) {
        addSearchRoutes(mRoutes, mParts);
        addClipRoutes(mRoutes, mParts);
        addLibraryRoutes(mRoutes, mParts);
        addJobRoutes(mRoutes, mParts);
        addSpeakerRoutes(mRoutes, mParts);
        addScriptRoutes(mRoutes, mParts);
        addExportRoutes(mRoutes, mParts);
        addTransferRoutes(mRoutes, mParts);
        mServer.start();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    ~Server() {
        mParts.isStopping = true;
        mServer.stopAll(true);
        mThreads.joinAll();
    }

    std::string address() const { return mGate.address(); }

private:
    void answer(HTTPServerRequest& request, HTTPServerResponse& response) {
        setSecurityHeaders(response);
        try {
            Exchange exchange(request, response);
            route(exchange);
        } catch (const HttpError& error) {
            fail(response, error.status(), error.what());
        } catch (const UsageError& error) {
            fail(response, Poco::Net::HTTPResponse::HTTP_BAD_REQUEST, error.what());
        } catch (const Failure& error) {
            fail(response, Poco::Net::HTTPResponse::HTTP_UNPROCESSABLE_ENTITY, error.what());
        } catch (const std::exception& error) {
            fail(response, Poco::Net::HTTPResponse::HTTP_INTERNAL_SERVER_ERROR, error.what());
        }
    }

    void route(Exchange& exchange) {
        mGate.requireOwnPage(exchange.request);
        if (exchange.path.empty() || exchange.path.front() != "api") {
            if (exchange.request.getMethod() != "GET" && exchange.request.getMethod() != "HEAD")
                throw HttpError(405, "pages can only be read");
            return mPages.send(exchange); // holds nothing of the user's
        }
        if (exchange.path == std::vector<std::string>{"api", "session"} &&
            exchange.request.getMethod() == "POST") {
            exchange.response.set("Set-Cookie", mGate.openSession(requiredText(*exchange.body(), "token")));
            return sendNothing(exchange);
        }
        mGate.requireSession(exchange.request);
        mRoutes.find(exchange)(exchange);
    }

    static void fail(HTTPServerResponse& response, int status, const std::string& message) {
        response.setKeepAlive(false); // part of the request may not have been read
        if (!response.sent()) sendError(response, status, message);
    }

    Poco::Net::ServerSocket mSocket;
    Gate mGate;
    Pages mPages;
    Parts mParts;
    Routes mRoutes;
    Poco::ThreadPool mThreads;
    Poco::Net::HTTPServer mServer;
};

Desk::Desk(const Home& home, std::uint16_t port, const std::filesystem::path& pages)
    : mServer(std::make_unique<Server>(home, port, pages)) {
}

Desk::~Desk() = default;

std::string Desk::address() const {
    return mServer->address();
}

std::filesystem::path pageFolder() {
    return executableFolder() / "desk";
}

} // namespace kestrel::desk
