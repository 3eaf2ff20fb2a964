#pragma once

/// @file
/// The exchange file on its way out: one JSON array, encrypted, as Base64 text. Internal.

#include "kestrelml/core/Cipher.h"

#include <Poco/Base64Encoder.h>
#include <Poco/Crypto/CryptoStream.h>

#include <ostream>
#include <string>

namespace kestrelml::detail {

/// Writes elements as they come; holds none of them. The bytes are those of encrypting the whole text at
/// once. Throws Poco's exceptions.
class ExchangeWriter {
public:
    ExchangeWriter(std::ostream& file, const std::string& passPhrase);

    /// @param element Text of a JSON value.
    void add(const std::string& element);
    void finish();

private:
    Poco::Crypto::Cipher::Ptr mCipher;
    Poco::Base64Encoder mEncoder;
    Poco::Crypto::EncryptingOutputStream mPlain;
    bool mIsEmpty = true;
};

} // namespace kestrelml::detail
