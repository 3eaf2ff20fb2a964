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

} // namespace kestrel::index
