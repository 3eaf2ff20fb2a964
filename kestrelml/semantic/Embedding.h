#pragma once

#include <array>
#include <cstddef>

namespace kestrelml::semantic {

/// Numbers of an embedding.
inline constexpr std::size_t kDimension = 512;
/// What stands for the meaning of a text.
using Embedding = std::array<float, kDimension>;

} // namespace kestrelml::semantic
