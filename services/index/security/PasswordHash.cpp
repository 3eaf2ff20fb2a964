#include "security/PasswordHash.h"

#include "common/RandomId.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace kestrel {

namespace {

constexpr int iterations = 100'000;
constexpr std::size_t hashBytes = 32;

std::string derive(const std::string& password, const std::string& salt, int rounds) {
    std::array<unsigned char, hashBytes> hash{};
    if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                          reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
                          rounds, EVP_sha256(), static_cast<int>(hash.size()), hash.data()) != 1)
        throw std::runtime_error("the password could not be hashed");
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : hash) {
        hex.push_back(digits[byte >> 4U]);
        hex.push_back(digits[byte & 0x0FU]);
    }
    return hex;
}

} // namespace

Json hashPassword(const std::string& password) {
    const std::string salt = randomId(16);
    return {{"salt", salt}, {"iterations", iterations}, {"hash", derive(password, salt, iterations)}};
}

bool passwordMatches(const Json& hash, const std::string& password) {
    const std::string expected = hash.at("hash");
    const std::string given = derive(password, hash.at("salt"), hash.at("iterations"));
    return expected.size() == given.size() && CRYPTO_memcmp(expected.data(), given.data(), given.size()) == 0;
}

} // namespace kestrel
