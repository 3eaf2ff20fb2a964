#pragma once

#include <string_view>

namespace kestrel::index {

bool isUtf8(std::string_view text);

} // namespace kestrel::index
