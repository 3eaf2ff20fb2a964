#pragma once

#include <cstddef>
#include <string>

namespace kestrel::index {

/// Unpredictable text of letters, digits, "-" and "_" that holds so many random bytes.
std::string randomId(std::size_t bytes);

} // namespace kestrel::index
