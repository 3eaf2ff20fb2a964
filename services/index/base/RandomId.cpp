#include "base/RandomId.h"

#include <openssl/rand.h>

#include <chrono>
#include <stdexcept>
#include <vector>

namespace kestrel::index {

namespace {

constexpr std::size_t kIdBytes = 15;
constexpr std::size_t kTimeBytes = 6;

std::vector<unsigned char> randomBytes(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    if (RAND_bytes(bytes.data(), static_cast<int>(count)) != 1)
        throw std::runtime_error("the system provides no random numbers");
    return bytes;
}

std::string encode(const std::vector<unsigned char>& bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    unsigned pending = 0;
    int bits = 0;
    for (const unsigned char byte : bytes) {
        pending = (pending << 8U) | byte;
        for (bits += 8; bits >= 6; bits -= 6)
            text.push_back(kAlphabet[(pending >> static_cast<unsigned>(bits - 6)) & 0x3FU]);
    }
    if (bits > 0) text.push_back(kAlphabet[(pending << static_cast<unsigned>(6 - bits)) & 0x3FU]);
    return text;
}

} // namespace

std::string randomId(std::size_t bytes) {
    return encode(randomBytes(bytes));
}

std::string timeOrderedId() {
    std::vector<unsigned char> bytes = randomBytes(kIdBytes);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    auto milliseconds =
        static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    for (std::size_t i = kTimeBytes; i-- > 0; milliseconds >>= 8U)
        bytes[i] = static_cast<unsigned char>(milliseconds & 0xFFU);
    return encode(bytes);
}

} // namespace kestrel::index
