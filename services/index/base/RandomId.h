#pragma once

#include <cstddef>
#include <string>

namespace kestrel::index {

/// Unpredictable text of letters, digits, "-" and "_" that holds so many random bytes.
std::string randomId(std::size_t bytes);

/// Unique text of 20 such characters that begins with the time, so that identifiers made one after the other
/// lie together where they are sorted.
std::string timeOrderedId();

} // namespace kestrel::index
