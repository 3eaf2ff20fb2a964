#include "base/RandomId.h"

#include <openssl/rand.h>

#include <stdexcept>
#include <vector>

namespace kestrel::index {

std::string randomId(std::size_t bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::vector<unsigned char> random(bytes);
    if (RAND_bytes(random.data(), static_cast<int>(bytes)) != 1)
        throw std::runtime_error("the system gives no random numbers");
    std::string text;
    unsigned pending = 0;
    int bits = 0;
    for (const unsigned char byte : random) {
        pending = (pending << 8U) | byte;
        for (bits += 8; bits >= 6; bits -= 6)
            text.push_back(kAlphabet[(pending >> static_cast<unsigned>(bits - 6)) & 0x3FU]);
    }
    if (bits > 0) text.push_back(kAlphabet[(pending << static_cast<unsigned>(6 - bits)) & 0x3FU]);
    return text;
}

} // namespace kestrel::index
