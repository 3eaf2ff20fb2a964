#pragma once

/// @file
/// The cipher of credentials and exchange files. Internal.

#include <Poco/Crypto/Cipher.h>

#include <string>

namespace kestrelml::detail {

/// AES-256-CBC under a pass phrase. Key and vector are derived anew on each call and kept nowhere else.
/// Null when the crypto library has no such cipher.
Poco::Crypto::Cipher::Ptr createCipher(const std::string& passPhrase);

/// Text is Base64 with line breaks on the encrypted side. Both throw Poco's exceptions.
std::string encrypt(Poco::Crypto::Cipher& cipher, const std::string& plain);
std::string decrypt(Poco::Crypto::Cipher& cipher, const std::string& encrypted);

} // namespace kestrelml::detail
