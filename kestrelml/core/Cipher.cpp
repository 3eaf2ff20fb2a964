#include "kestrelml/core/Cipher.h"

#include <Poco/Crypto/CipherFactory.h>
#include <Poco/Crypto/CipherKey.h>
#include <Poco/Crypto/CryptoException.h>
#include <openssl/evp.h>

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace kestrelml::detail {
namespace {

using Poco::Crypto::Cipher;
using Poco::Crypto::CipherKey;

// Hosts exchange data encrypted by other installations: none of these may ever change.
constexpr const char* kCipherName = "aes-256-cbc";
constexpr std::string_view kSalt = "p4tz7rm1q06vhe93";
constexpr int kIterations = 2000;

/// Poco folds a longer salt into the eight bytes that OpenSSL takes.
std::array<unsigned char, 8> foldedSalt() {
    std::array<unsigned char, 8> folded{};
    for (std::size_t i = 0; i < kSalt.size(); ++i) {
        folded[i % folded.size()] ^= static_cast<unsigned char>(kSalt[i]);
    }
    return folded;
}

struct FreeDigest {
    void operator()(EVP_MD* digest) const { EVP_MD_free(digest); }
};

/// The key that `CipherKey` derives from a pass phrase with MD5. It looks the digest up again in each of
/// thousands of rounds, which takes as long as the rest of a request; looking it up once halves that.
CipherKey deriveKey(const std::string& passPhrase) {
    const std::unique_ptr<EVP_MD, FreeDigest> digest(EVP_MD_fetch(nullptr, "MD5", nullptr));
    const auto salt = foldedSalt();
    CipherKey::ByteVec key(EVP_MAX_KEY_LENGTH);
    CipherKey::ByteVec vector(EVP_MAX_IV_LENGTH);
    const int size =
        digest == nullptr
            ? 0
            : EVP_BytesToKey(EVP_aes_256_cbc(), digest.get(), salt.data(),
                             reinterpret_cast<const unsigned char*>(passPhrase.data()),
                             static_cast<int>(passPhrase.size()), kIterations, key.data(), vector.data());
    if (size == 0) throw Poco::Crypto::OpenSSLException("cannot derive a key");
    key.resize(static_cast<std::size_t>(size));
    return {kCipherName, key, vector};
}

/// The key of the pass phrase asked for last. Deriving it takes longer than all else that a request does, and
/// every request of a process asks for the same one.
class LastKey {
public:
    CipherKey of(const std::string& passPhrase) {
        const std::lock_guard lock(mMutex);
        if (!mKey || mPassPhrase != passPhrase) {
            mKey = deriveKey(passPhrase);
            mPassPhrase = passPhrase;
        }
        return *mKey;
    }

    void forget() {
        const std::lock_guard lock(mMutex);
        mKey.reset();
        mPassPhrase.clear();
    }

private:
    std::mutex mMutex;
    std::string mPassPhrase;
    std::optional<CipherKey> mKey;
};

LastKey& lastKey() {
    static LastKey instance;
    return instance;
}

} // namespace

Cipher::Ptr createCipher(const std::string& passPhrase) {
    return Poco::Crypto::CipherFactory::defaultFactory().createCipher(lastKey().of(passPhrase));
}

void forgetDerivedKey() {
    lastKey().forget();
}

std::string encrypt(Cipher& cipher, const std::string& plain) {
    return cipher.encryptString(plain, Cipher::ENC_BASE64);
}

std::string decrypt(Cipher& cipher, const std::string& encrypted) {
    return cipher.decryptString(encrypted, Cipher::ENC_BASE64);
}

} // namespace kestrelml::detail
