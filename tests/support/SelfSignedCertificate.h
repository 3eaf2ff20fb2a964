#pragma once

#include <Poco/Net/Context.h>

namespace kestrel_test {

/// A server context with a certificate and key made on the spot for 127.0.0.1.
Poco::Net::Context::Ptr selfSignedServerContext();

} // namespace kestrel_test
