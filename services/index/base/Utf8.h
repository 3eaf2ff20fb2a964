#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrel::index {

bool isUtf8(std::string_view text);

/// The text cut to at most so many bytes, between two characters, and "..." when it was cut.
std::string shortened(std::string text, std::size_t bytes);

} // namespace kestrel::index
