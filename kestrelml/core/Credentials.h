#pragma once

/// @file
/// How the transport learns whose name to send. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <string>

namespace kestrelml::detail {

struct BasicCredentials {
    std::string user;
    std::string password;
};

/// Replaces `credentials` if it knows better ones for `caller`. A non-zero result ends the request unsent.
using CredentialSource = KsNN_ErrorCode (*)(KsNNBase& caller, BasicCredentials& credentials, bool debug);

/// The store keeps the credentials, and the transport must not know the store: the store installs itself
/// here.
void setCredentialSource(CredentialSource source);

/// Credentials for a request of `caller`: the built-in debug user unless the source knows others.
KsNN_ErrorCode credentialsFor(KsNNBase& caller, BasicCredentials& credentials, bool debug);

/// The built-in debug user.
BasicCredentials debugCredentials();
/// The same as "name:password".
std::string debugUserAndPassword();

} // namespace kestrelml::detail
