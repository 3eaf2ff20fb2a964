#include "kestrelml/core/RESTCall.h"

#include "kestrelml/core/Credentials.h"
#include "kestrelml/core/Debug.h"
#include "kestrelml/core/Report.h"
#include "kestrelml/core/RequestTarget.h"
#include "kestrelml/core/TlsClient.h"

#include <Poco/Dynamic/Var.h>
#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPBasicCredentials.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/HTTPSClientSession.h>
#include <Poco/URI.h>

#include <memory>

namespace {

namespace detail = kestrelml::detail;
using Poco::Net::HTTPClientSession;
using Poco::Net::HTTPRequest;
using Poco::Net::HTTPResponse;

std::string commandLine(const std::string& method, const std::string& target, const std::string& body) {
    return "curl -X " + method + " " + target + " -k -u " + detail::debugUserAndPassword() +
           " -H 'Content-Type: application/json' -d '" + body + "'";
}

std::unique_ptr<HTTPClientSession> openSession(const Poco::URI& uri, unsigned timeoutSeconds, bool useTLS) {
    const Poco::Net::Context::Ptr context = detail::clientTlsContext();
    std::unique_ptr<HTTPClientSession> session;
    if (useTLS) {
        session = std::make_unique<Poco::Net::HTTPSClientSession>(uri.getHost(), uri.getPort(), context);
    } else {
        session = std::make_unique<HTTPClientSession>(uri.getHost(), uri.getPort());
    }
    session->setTimeout(Poco::Timespan(static_cast<long>(timeoutSeconds), 0));
    // Without this the session rewrites the request's own keep-alive header.
    session->setKeepAlive(true);
    return session;
}

/// May throw whatever the networking and JSON libraries throw.
KsNN_ErrorCode exchange(const std::string& method, const std::string& path, unsigned timeoutSeconds,
                        const std::string& body, Poco::JSON::Object::Ptr& response, unsigned& status,
                        KsNNBase& caller, bool useAuth, bool useTLS, bool debug) {
    const std::string target = caller.GetURI() + path;
    const Poco::URI uri(target);
    HTTPRequest request(method, detail::requestTarget(target), HTTPRequest::HTTP_1_1);
    request.setContentType("application/json");
    request.setKeepAlive(true);
    if (useAuth) {
        detail::BasicCredentials credentials;
        const KsNN_ErrorCode code = detail::credentialsFor(caller, credentials, debug);
        if (code != KsNN_Success) return code;
        Poco::Net::HTTPBasicCredentials(credentials.user, credentials.password).authenticate(request);
    }
    request.setContentLength64(static_cast<Poco::Int64>(body.size()));
    caller.SetLastRESTCall(commandLine(method, target, body));
    detail::debugLine(debug, "RESTCall inputJSON requestBody: ", body.size(), ", ", body);

    const std::unique_ptr<HTTPClientSession> session = openSession(uri, timeoutSeconds, useTLS);
    session->sendRequest(request) << body << std::flush;
    HTTPResponse answer;
    std::istream& answerStream = session->receiveResponse(answer);
    Poco::JSON::Parser parser;
    const Poco::Dynamic::Var parsed = parser.parse(answerStream);
    detail::debugLine(debug, "KsNN: RESTCall response: ", static_cast<int>(answer.getStatus()), " ",
                      answer.getReason());
    response = parsed.extract<Poco::JSON::Object::Ptr>();
    if (debug) {
        std::ostringstream text;
        response->stringify(text, 1);
        detail::debugLine(debug, "RESTCall output response: ", text.str());
    }
    status = static_cast<unsigned>(answer.getStatus());
    return KsNN_Success;
}

/// What a request that failed is reported as; its exception's details are what there is to say.
constexpr detail::OnException kNoAnswer{"RESTCall exception", KsNN_Exception, ""};

} // namespace

KsNN_ErrorCode RESTCall(const std::string& method, const std::string& path, unsigned timeoutSeconds,
                        std::stringstream& body, Poco::JSON::Object::Ptr& response, unsigned& status,
                        KsNNBase* caller, bool useAuth, bool useTLS, bool debug) {
    status = HTTPResponse::HTTP_OK;
    return detail::guarded(kNoAnswer, caller, debug, [&] {
        return exchange(method, path, timeoutSeconds, body.str(), response, status, *caller, useAuth, useTLS,
                        debug);
    });
}

KsNN_ErrorCode RESTCall(const std::string& method, const std::string& path, unsigned timeoutSeconds,
                        const Poco::JSON::Object::Ptr& body, Poco::JSON::Object::Ptr& response,
                        unsigned& status, KsNNBase* caller, bool useAuth, bool useTLS, bool debug) {
    status = HTTPResponse::HTTP_OK;
    return detail::guarded(kNoAnswer, caller, debug, [&] {
        std::stringstream text;
        if (!body.isNull()) body->stringify(text);
        return RESTCall(method, path, timeoutSeconds, text, response, status, caller, useAuth, useTLS, debug);
    });
}

KsNN_ErrorCode GetQueryResultCount(std::string method, std::string path, const Poco::JSON::Object::Ptr& query,
                                   KsNNBase* caller, int& count, bool debug) {
    constexpr const char* kFailure = "KsNNDatabase::GetQueryResultCount err: ";
    Poco::JSON::Object::Ptr response;
    unsigned status = 0;
    const KsNN_ErrorCode code = RESTCall(method, path, detail::kIndexTimeoutSeconds, query, response, status,
                                         caller, true, true, debug);
    if (code != KsNN_Success) return code;
    if (status != HTTPResponse::HTTP_OK) return detail::fail(caller, kFailure, debug);
    return detail::guarded({kFailure, KsNN_Error, kFailure}, caller, debug, [&] {
        count = response->get("count").convert<Poco::Int32>();
        detail::debugLine(debug, "KsNNDatabase::GetQueryResultCount: count ", count);
        return KsNN_Success;
    });
}
