#include "tests/support/FaultProxy.h"

#include <Poco/Net/Context.h>
#include <Poco/Net/HTTPBasicCredentials.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/HTTPSClientSession.h>
#include <Poco/StreamCopier.h>
#include <Poco/URI.h>

#include <mutex>
#include <stdexcept>
#include <utility>

namespace kestrel_test {

using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;

const std::vector<Fault>& faults() {
    static const std::vector<Fault> all = {
        {"status 500", Reply::json(500, R"({"error": {"reason": "made up"}})")},
        {"HTML", Reply::html()},
        {"an empty body", Reply::empty()},
        {"a cut connection", Reply::cutConnection()},
        {"a lost answer", Reply::cutConnection(), true},
    };
    return all;
}

/// One connection to the service, kept open.
class FaultProxy::Upstream {
public:
    explicit Upstream(const IndexService& service)
        : mUri(service.uri()), mUser(service.user()), mPassword(service.password()),
          mSession(mUri.getHost(), mUri.getPort(),
                   new Poco::Net::Context(Poco::Net::Context::TLS_CLIENT_USE, "",
                                          Poco::Net::Context::VERIFY_NONE)) {
        mSession.setKeepAlive(true);
    }

    Reply pass(const RecordedRequest& recorded) {
        HTTPRequest request(recorded.method, recorded.target, HTTPRequest::HTTP_1_1);
        const auto authorization = recorded.headers.find("Authorization");
        if (authorization != recorded.headers.end()) request.set("Authorization", authorization->second);
        return send(request, recorded.body);
    }

    Reply ask(const std::string& method, const std::string& path, const std::string& body) {
        HTTPRequest request(method, path, HTTPRequest::HTTP_1_1);
        Poco::Net::HTTPBasicCredentials(mUser, mPassword).authenticate(request);
        return send(request, body);
    }

private:
    Reply send(HTTPRequest& request, const std::string& body) {
        const std::lock_guard lock(mMutex);
        request.setHost(mUri.getHost(), mUri.getPort());
        request.setContentType("application/json");
        request.setContentLength64(static_cast<Poco::Int64>(body.size()));
        request.setKeepAlive(true);
        mSession.sendRequest(request) << body << std::flush;
        HTTPResponse response;
        std::istream& stream = mSession.receiveResponse(response);
        Reply reply;
        reply.status = response.getStatus();
        reply.body.clear();
        Poco::StreamCopier::copyToString(stream, reply.body);
        return reply;
    }

    std::mutex mMutex;
    Poco::URI mUri;
    std::string mUser;
    std::string mPassword;
    Poco::Net::HTTPSClientSession mSession;
};

FaultProxy::FaultProxy(const IndexService& service) : mUpstream(std::make_unique<Upstream>(service)) {
    pass();
}

FaultProxy::~FaultProxy() = default;

void FaultProxy::pass() {
    mServer.reset();
    mServer.otherwise([this](const RecordedRequest& request) { return mUpstream->pass(request); });
}

void FaultProxy::failAt(std::size_t position, const Fault& fault) {
    mServer.reset();
    mServer.otherwise([this, position, fault, seen = std::size_t{0}](const RecordedRequest& request) mutable {
        if (seen++ != position) return mUpstream->pass(request);
        if (fault.isAnswerLost) mUpstream->pass(request);
        return fault.reply;
    });
}

std::string FaultProxy::ask(const std::string& method, const std::string& path, const std::string& body) {
    const Reply reply = mUpstream->ask(method, path, body);
    if (reply.status >= 300) throw std::runtime_error(method + " " + path + ": " + reply.body);
    return reply.body;
}

} // namespace kestrel_test
