#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrel::index {

bool isUtf8(std::string_view text);

/// The text, cut after so many bytes, between two characters.
std::string shortened(std::string text, std::size_t bytes);

} // namespace kestrel::index
