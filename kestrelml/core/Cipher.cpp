#include "kestrelml/core/Cipher.h"

#include <Poco/Crypto/CipherFactory.h>
#include <Poco/Crypto/CipherKey.h>

namespace kestrelml::detail {

using Poco::Crypto::Cipher;

Cipher::Ptr createCipher(const std::string& passPhrase) {
    // Hosts exchange data encrypted by other installations: none of these may ever change.
    const Poco::Crypto::CipherKey key("aes-256-cbc", passPhrase, "p4tz7rm1q06vhe93", 2000, "md5");
    return Poco::Crypto::CipherFactory::defaultFactory().createCipher(key);
}

std::string encrypt(Cipher& cipher, const std::string& plain) {
    return cipher.encryptString(plain, Cipher::ENC_BASE64);
}

std::string decrypt(Cipher& cipher, const std::string& encrypted) {
    return cipher.decryptString(encrypted, Cipher::ENC_BASE64);
}

} // namespace kestrelml::detail
