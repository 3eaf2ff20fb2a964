#pragma once

/// @file
/// The one routine through which every HTTP request of the library goes. Internal, not installed.

#include "kestrelml/core/KsNNBase.h"

#include <Poco/JSON/Object.h>

#include <sstream>
#include <string>

namespace kestrelml::detail {

/// Limit in seconds for connecting, each send and each receive of a request to the index service.
inline constexpr unsigned kIndexTimeoutSeconds = 10;

} // namespace kestrelml::detail

/// Sends one JSON request on a connection of its own and reads the answer as a JSON object.
///
/// The status is handed back, never judged. Exceptions do not leave this function: they become code 2 with a
/// report in `caller`, in which case `status` may still be 200.
///
/// @param method         HTTP method.
/// @param path           Path and query, appended to the caller's service URI as it stands.
/// @param timeoutSeconds Limit for connecting, for each send and for each receive.
/// @param body           Sent whole.
/// @param response       Receives the answer.
/// @param status         Receives the HTTP status.
/// @param caller         Supplies the service URI, receives the printable command line and any report.
/// @param useAuth        Send basic authentication.
/// @param useTLS         Speak HTTPS, whatever the scheme of the URI says.
/// @param debug          Trace to standard output.
KsNN_ErrorCode RESTCall(const std::string& method, const std::string& path, unsigned timeoutSeconds,
                        std::stringstream& body, Poco::JSON::Object::Ptr& response, unsigned& status,
                        KsNNBase* caller, bool useAuth, bool useTLS, bool debug);

/// The same with a JSON object as the body, written without indentation; null sends an empty body.
KsNN_ErrorCode RESTCall(const std::string& method, const std::string& path, unsigned timeoutSeconds,
                        const Poco::JSON::Object::Ptr& body, Poco::JSON::Object::Ptr& response,
                        unsigned& status, KsNNBase* caller, bool useAuth, bool useTLS, bool debug);

/// Sends a counting query to the index service and reads "count".
KsNN_ErrorCode GetQueryResultCount(std::string method, std::string path, const Poco::JSON::Object::Ptr& query,
                                   KsNNBase* caller, int& count, bool debug);
