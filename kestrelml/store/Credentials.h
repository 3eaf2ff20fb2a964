#pragma once

/// @file
/// Decryption of the stored credentials. Internal.

#include "kestrelml/core/Credentials.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>

namespace kestrelml::detail {

/// Decrypts the stored credentials; failures are reported on `caller`.
KsNN_ErrorCode decryptCredentials(KsNNDatabase* caller, std::string& user, std::string& password, bool debug);

/// What the store tells the transport: the stored credentials for requests of a store, once there are any.
KsNN_ErrorCode storeCredentials(KsNNBase& caller, BasicCredentials& credentials, bool debug);

} // namespace kestrelml::detail
