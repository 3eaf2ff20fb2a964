#include "tests/support/SelfSignedCertificate.h"

#include <Poco/Crypto/EVPPKey.h>
#include <Poco/Crypto/X509Certificate.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace kestrel_test {
namespace {

Poco::Crypto::X509Certificate selfSigned(const Poco::Crypto::EVPPKey& key) {
    // The certificate object takes the structure over.
    X509* const certificate = X509_new();
    Poco::Crypto::X509Certificate owner(certificate);
    auto* const pkey = const_cast<EVP_PKEY*>(static_cast<const EVP_PKEY*>(key));
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600L * 24);
    X509_set_pubkey(certificate, pkey);
    X509_NAME* const name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    if (X509_sign(certificate, pkey, EVP_sha256()) == 0)
        throw std::runtime_error("cannot sign a certificate");
    return owner;
}

} // namespace

Poco::Net::Context::Ptr selfSignedServerContext() {
    using Poco::Net::Context;
    const Poco::Crypto::EVPPKey key("prime256v1");
    Context::Ptr context = new Context(Context::TLS_SERVER_USE, "", Context::VERIFY_NONE);
    context->useCertificate(selfSigned(key));
    context->usePrivateKey(key);
    return context;
}

} // namespace kestrel_test
