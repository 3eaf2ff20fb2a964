#pragma once

/// @file
/// TLS settings of every connection. Internal.

#include <Poco/Net/Context.h>

namespace kestrelml::detail {

/// A client context that accepts any server certificate: services on the loopback address sign their own.
///
/// The first call makes it the process-wide default of the TLS manager. Loading the system's certificates
/// takes longer than a whole request, so it is done once.
Poco::Net::Context::Ptr clientTlsContext();

} // namespace kestrelml::detail
