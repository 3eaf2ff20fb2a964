#include "kestrelml/core/TlsClient.h"

#include <Poco/Net/AcceptCertificateHandler.h>
#include <Poco/Net/SSLManager.h>
#include <openssl/ssl.h>

namespace kestrelml::detail {
namespace {

Poco::Net::Context::Ptr installClientDefaults() {
    using Poco::Net::Context;
    Poco::Net::SSLManager::InvalidCertificateHandlerPtr acceptAll =
        new Poco::Net::AcceptCertificateHandler(false);
    Context::Ptr context = new Context(Context::TLS_CLIENT_USE, "", "", "", Context::VERIFY_RELAXED, 9, true,
                                       "ALL:!ADH:!LOW:!EXP:!MD5:@STRENGTH");
    // Every certificate is accepted, so the search for its issuer among the system's is spared.
    SSL_CTX_set_cert_verify_callback(
        context->sslContext(), [](X509_STORE_CTX*, void*) { return 1; }, nullptr);
    Poco::Net::SSLManager::instance().initializeClient(nullptr, acceptAll, context);
    return context;
}

} // namespace

Poco::Net::Context::Ptr clientTlsContext() {
    static const Poco::Net::Context::Ptr context = installClientDefaults();
    return context;
}

} // namespace kestrelml::detail
