#pragma once

#include <cstddef>
#include <string>

namespace kestrel::index {

/// The given number of random bytes as letters, digits, "-" and "_".
std::string randomId(std::size_t bytes);

/// A unique text of 20 such characters that begins with the time, so that identifiers created in sequence are
/// neighbours in a sorted index.
std::string timeOrderedId();

} // namespace kestrel::index
