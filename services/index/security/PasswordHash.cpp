#include "security/PasswordHash.h"

#include "base/RandomId.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace kestrel::index {

namespace {

/// As OWASP's Password Storage Cheat Sheet (2024) recommends: 32 MiB, parallelisation 3.
constexpr std::uint64_t kCost = 1ULL << 15U;
constexpr std::uint64_t kBlockSize = 8;
constexpr std::uint64_t kParallel = 3;
constexpr std::uint64_t kMemoryLimit = 256ULL * 1024 * 1024;
constexpr std::size_t kHashBytes = 32;

using Hash = std::array<unsigned char, kHashBytes>;

std::string hex(const Hash& hash) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : hash) {
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0x0FU]);
    }
    return text;
}

const unsigned char* bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string scrypt(const std::string& password, const std::string& salt, std::uint64_t cost,
                   std::uint64_t blockSize, std::uint64_t parallel) {
    Hash hash{};
    if (EVP_PBE_scrypt(password.data(), password.size(), bytes(salt), salt.size(), cost, blockSize, parallel,
                       kMemoryLimit, hash.data(), hash.size()) != 1)
        throw std::runtime_error("the password could not be hashed");
    return hex(hash);
}

/// The hash that earlier versions stored.
std::string pbkdf2(const std::string& password, const std::string& salt, int iterations) {
    Hash hash{};
    if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), bytes(salt),
                          static_cast<int>(salt.size()), iterations, EVP_sha256(),
                          static_cast<int>(hash.size()), hash.data()) != 1)
        throw std::runtime_error("the password could not be hashed");
    return hex(hash);
}

} // namespace

Json hashPassword(const std::string& password) {
    const std::string salt = randomId(16);
    return {{"salt", salt},
            {"cost", kCost},
            {"block_size", kBlockSize},
            {"parallel", kParallel},
            {"hash", scrypt(password, salt, kCost, kBlockSize, kParallel)}};
}

Json unmatchedHash() {
    return {{"salt", randomId(16)},
            {"cost", kCost},
            {"block_size", kBlockSize},
            {"parallel", kParallel},
            {"hash", std::string(2 * kHashBytes, '-')}};
}

bool passwordMatches(const Json& hash, const std::string& password) {
    const std::string expected = hash.at("hash");
    const std::string given =
        hash.contains("iterations")
            ? pbkdf2(password, hash.at("salt"), hash.at("iterations"))
            : scrypt(password, hash.at("salt"), hash.at("cost"), hash.at("block_size"), hash.at("parallel"));
    return expected.size() == given.size() && CRYPTO_memcmp(expected.data(), given.data(), given.size()) == 0;
}

} // namespace kestrel::index
