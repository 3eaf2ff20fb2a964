#include "security/Certificate.h"

#include "base/AtomicFile.h"
#include "storage/DataFolder.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace kestrel::index {

namespace {

constexpr long kValidSeconds = 10L * 365 * 24 * 60 * 60;
constexpr int kSerialBits = 127;

template <auto Free>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Deleter<X509_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using NumberPtr = std::unique_ptr<BIGNUM, Deleter<BN_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

void require(bool succeeded) {
    if (!succeeded) throw std::runtime_error("the certificate could not be created");
}

void addExtension(X509* certificate, int id, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, id, value));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

CertificatePtr selfSigned(EVP_PKEY* key) {
    CertificatePtr certificate(X509_new());
    require(certificate != nullptr && X509_set_version(certificate.get(), 2) == 1);
    const NumberPtr serial(BN_new());
    require(serial != nullptr &&
            BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1);
    require(BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get())) != nullptr);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kValidSeconds);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    const auto* common = reinterpret_cast<const unsigned char*>("kestrel-index");
    require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common, -1, -1, 0) == 1);
    require(X509_set_issuer_name(certificate.get(), name) == 1);
    require(X509_set_pubkey(certificate.get(), key) == 1);
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate.get(), NID_subject_key_identifier, "hash");
    addExtension(certificate.get(), NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1");
    require(X509_sign(certificate.get(), key, EVP_sha256()) > 0);
    return certificate;
}

std::string content(BIO* bio) {
    char* bytes = nullptr;
    const long length = BIO_get_mem_data(bio, &bytes);
    return {bytes, static_cast<std::size_t>(length)};
}

void requirePair(const std::filesystem::path& certificate, const std::filesystem::path& privateKey) {
    const auto unusable = [](const std::filesystem::path& file, const char* why) {
        return DataFolderError(fmt::format(
            "{} {}; restore it, or remove certificate.pem and private-key.pem to have both created again",
            file.string(), why));
    };
    const BioPtr certificateFile(BIO_new_file(certificate.c_str(), "r"));
    const CertificatePtr read(
        certificateFile ? PEM_read_bio_X509(certificateFile.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!read) throw unusable(certificate, "does not contain a readable certificate");
    const BioPtr keyFile(BIO_new_file(privateKey.c_str(), "r"));
    const KeyPtr key(keyFile ? PEM_read_bio_PrivateKey(keyFile.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key) throw unusable(privateKey, "does not contain a readable private key");
    if (X509_check_private_key(read.get(), key.get()) != 1)
        throw unusable(privateKey, "is not the key of certificate.pem");
}

} // namespace

void ensureCertificate(const std::filesystem::path& certificate, const std::filesystem::path& privateKey) {
    if (std::filesystem::exists(certificate) && std::filesystem::exists(privateKey))
        return requirePair(certificate, privateKey);
    // One without the other is useless, and must not end up beside a new one if this is interrupted.
    std::filesystem::remove(certificate);
    const KeyPtr key(EVP_EC_gen("P-256"));
    require(key != nullptr);
    const CertificatePtr signedCertificate = selfSigned(key.get());
    const BioPtr keyText(BIO_new(BIO_s_mem()));
    const BioPtr certificateText(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
    require(PEM_write_bio_X509(certificateText.get(), signedCertificate.get()) == 1);
    writeFileAtomically(privateKey, content(keyText.get()));
    writeFileAtomically(certificate, content(certificateText.get()));
}

} // namespace kestrel::index
