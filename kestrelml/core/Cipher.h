#pragma once

/// @file
/// The cipher of credentials and exchange files. Internal.

#include <Poco/Crypto/Cipher.h>

#include <string>

namespace kestrelml::detail {

/// AES-256-CBC under a pass phrase. Key and vector are derived from it, and kept in memory until another pass
/// phrase comes. Null when the crypto library has no such cipher. For any thread.
Poco::Crypto::Cipher::Ptr createCipher(const std::string& passPhrase);

/// Forgets what was derived: the pass phrase is out of use.
void forgetDerivedKey();

/// Text is Base64 with line breaks on the encrypted side. Both throw Poco's exceptions.
std::string encrypt(Poco::Crypto::Cipher& cipher, const std::string& plain);
std::string decrypt(Poco::Crypto::Cipher& cipher, const std::string& encrypted);

} // namespace kestrelml::detail
