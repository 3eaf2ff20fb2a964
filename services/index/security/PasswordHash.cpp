#include "security/PasswordHash.h"

#include "base/RandomId.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <stdexcept>
#include <string_view>

namespace kestrel::index {

namespace {

constexpr int kIterations = 100'000;
constexpr std::size_t kHashBytes = 32;

std::string derive(const std::string& password, const std::string& salt, int rounds) {
    std::array<unsigned char, kHashBytes> hash{};
    if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()),
                          reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
                          rounds, EVP_sha256(), static_cast<int>(hash.size()), hash.data()) != 1)
        throw std::runtime_error("the password could not be hashed");
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : hash) {
        hex.push_back(kDigits[byte >> 4U]);
        hex.push_back(kDigits[byte & 0x0FU]);
    }
    return hex;
}

} // namespace

Json hashPassword(const std::string& password) {
    const std::string salt = randomId(16);
    return {{"salt", salt}, {"iterations", kIterations}, {"hash", derive(password, salt, kIterations)}};
}

bool passwordMatches(const Json& hash, const std::string& password) {
    const std::string expected = hash.at("hash");
    const std::string given = derive(password, hash.at("salt"), hash.at("iterations"));
    return expected.size() == given.size() && CRYPTO_memcmp(expected.data(), given.data(), given.size()) == 0;
}

} // namespace kestrel::index
