#include "base/Checksum.h"

#include <array>
#include <zlib.h>

namespace kestrel::index {

Checksum& Checksum::add(std::int64_t number) {
    std::array<unsigned char, 8> bytes{};
    auto rest = static_cast<std::uint64_t>(number);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(rest & 0xFFU);
        rest >>= 8U;
    }
    return addBytes(bytes.data(), bytes.size());
}

Checksum& Checksum::add(std::string_view text) {
    add(static_cast<std::int64_t>(text.size()));
    return addBytes(text.data(), text.size());
}

Checksum& Checksum::addBytes(const void* bytes, std::size_t size) {
    mValue = static_cast<std::uint32_t>(crc32_z(mValue, static_cast<const unsigned char*>(bytes), size));
    return *this;
}

} // namespace kestrel::index
