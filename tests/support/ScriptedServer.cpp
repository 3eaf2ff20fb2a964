#include "tests/support/ScriptedServer.h"

#include "tests/support/SelfSignedCertificate.h"

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/SecureServerSocket.h>
#include <Poco/StreamCopier.h>
#include <Poco/ThreadPool.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace kestrel_test {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerRequestImpl;
using Poco::Net::HTTPServerResponse;

Reply Reply::json(int status, std::string body) {
    Reply reply;
    reply.status = status;
    reply.body = std::move(body);
    return reply;
}

Reply Reply::html(int status) {
    Reply reply = json(status, "<!DOCTYPE html><html><body><h1>It works!</h1></body></html>");
    reply.contentType = "text/html";
    return reply;
}

Reply Reply::empty(int status) {
    return json(status, "");
}

Reply Reply::cutConnection() {
    Reply reply;
    reply.fault = Fault::CutConnection;
    return reply;
}

Reply Reply::cutAnswer() {
    Reply reply = json(200, R"({"hits": {"hits": [)");
    reply.fault = Fault::CutAnswer;
    return reply;
}

Reply Reply::stall(std::chrono::milliseconds delay) {
    Reply reply;
    reply.fault = Fault::Stall;
    reply.delay = delay;
    return reply;
}

struct ScriptedServer::State {
    std::mutex mutex;
    std::condition_variable stopped;
    bool stopping = false;
    std::deque<Reply> script;
    std::vector<RecordedRequest> requests;
    std::function<Reply(const RecordedRequest&)> otherwise = [](const RecordedRequest& request) {
        return Reply::json(500, R"({"error": "the script has no answer for )" + request.line() + R"("})");
    };

    Reply answerTo(RecordedRequest request) {
        const std::lock_guard lock(mutex);
        requests.push_back(std::move(request));
        if (script.empty()) return otherwise(requests.back());
        Reply reply = std::move(script.front());
        script.pop_front();
        return reply;
    }

    void wait(std::chrono::milliseconds delay) {
        std::unique_lock lock(mutex);
        stopped.wait_for(lock, delay, [&] { return stopping; });
    }
};

class ScriptedServer::Handler : public Poco::Net::HTTPRequestHandler {
public:
    explicit Handler(std::shared_ptr<State> state) : mState(std::move(state)) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        RecordedRequest recorded{request.getMethod(), request.getURI(), {}, {}};
        for (const auto& [name, value] : request)
            recorded.headers[name] = value;
        Poco::StreamCopier::copyToString(request.stream(), recorded.body);
        const Reply reply = mState->answerTo(std::move(recorded));
        if (reply.delay.count() > 0) mState->wait(reply.delay);

        const bool cutsAnswer = reply.fault == Reply::Fault::CutAnswer;
        if (reply.fault == Reply::Fault::None || cutsAnswer) {
            response.setStatusAndReason(static_cast<Poco::Net::HTTPResponse::HTTPStatus>(reply.status));
            response.setContentType(reply.contentType);
            response.setContentLength(static_cast<int>(reply.body.size()) + (cutsAnswer ? 1000 : 0));
            response.send() << reply.body << std::flush;
        }
        if (reply.fault != Reply::Fault::None) {
            static_cast<HTTPServerRequestImpl&>(request).detachSocket().close();
        }
    }

private:
    std::shared_ptr<State> mState;
};

class ScriptedServer::Factory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit Factory(std::shared_ptr<State> state) : mState(std::move(state)) {}

    Poco::Net::HTTPRequestHandler* createRequestHandler(const HTTPServerRequest&) override {
        return new Handler(mState);
    }

private:
    std::shared_ptr<State> mState;
};

class ScriptedServer::Listener {
public:
    Listener(const std::shared_ptr<State>& state, Protocol protocol)
        : mSocket(listen(protocol)), mPool(2, 16), mServer(new Factory(state), mPool, mSocket, parameters()) {
        mServer.start();
    }

    ~Listener() {
        mServer.stopAll(true);
        mPool.joinAll();
    }

    int port() const { return mSocket.address().port(); }

private:
    static Poco::Net::ServerSocket listen(Protocol protocol) {
        const Poco::Net::SocketAddress anyPort("127.0.0.1", 0);
        if (protocol == Protocol::Http) return Poco::Net::ServerSocket(anyPort);
        // A socket is a handle: what makes it a secure one lies behind it.
        return Poco::Net::SecureServerSocket(anyPort, 64, // NOLINT(cppcoreguidelines-slicing)
                                             selfSignedServerContext());
    }

    static Poco::Net::HTTPServerParams::Ptr parameters() {
        Poco::Net::HTTPServerParams::Ptr parameters = new Poco::Net::HTTPServerParams;
        parameters->setKeepAlive(false);
        return parameters;
    }

    Poco::Net::ServerSocket mSocket;
    Poco::ThreadPool mPool;
    Poco::Net::HTTPServer mServer;
};

ScriptedServer::ScriptedServer(Protocol protocol)
    : mState(std::make_shared<State>()), mListener(std::make_unique<Listener>(mState, protocol)),
      mScheme(protocol == Protocol::Https ? "https" : "http") {
}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard lock(mState->mutex);
        mState->stopping = true;
    }
    mState->stopped.notify_all();
}

std::string ScriptedServer::uri() const {
    return mScheme + "://127.0.0.1:" + std::to_string(mListener->port()) + "/";
}

void ScriptedServer::script(std::vector<Reply> replies) {
    const std::lock_guard lock(mState->mutex);
    for (Reply& reply : replies)
        mState->script.push_back(std::move(reply));
}

void ScriptedServer::otherwise(std::function<Reply(const RecordedRequest&)> answer) {
    const std::lock_guard lock(mState->mutex);
    mState->otherwise = std::move(answer);
}

std::vector<RecordedRequest> ScriptedServer::requests() const {
    const std::lock_guard lock(mState->mutex);
    return mState->requests;
}

std::vector<std::string> ScriptedServer::conversation() const {
    std::vector<std::string> lines;
    for (const RecordedRequest& request : requests())
        lines.push_back(request.line());
    return lines;
}

void ScriptedServer::reset() {
    const std::lock_guard lock(mState->mutex);
    mState->script.clear();
    mState->requests.clear();
}

} // namespace kestrel_test
