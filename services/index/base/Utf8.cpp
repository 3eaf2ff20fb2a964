#include "base/Utf8.h"

#include <unicode/utf8.h>

namespace kestrel::index {

bool isUtf8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        UChar32 point = 0;
        U8_NEXT(bytes, i, text.size(), point);
        if (point < 0) return false;
    }
    return true;
}

std::string shortened(std::string text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U)
        --bytes;
    text.resize(bytes);
    return text + "...";
}

} // namespace kestrel::index
