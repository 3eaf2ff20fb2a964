#pragma once

#include <cstdint>
#include <string_view>

namespace kestrel::index {

/// CRC-32 of everything added. Numbers are added in little-endian order, texts together with their length, so
/// that a byte moved from one text to the next is noticed.
class Checksum {
public:
    Checksum& add(std::int64_t number);
    Checksum& add(std::string_view text);
    Checksum& addBytes(const void* bytes, std::size_t size);
    std::uint32_t value() const { return mValue; }

private:
    std::uint32_t mValue = 0;
};

} // namespace kestrel::index
