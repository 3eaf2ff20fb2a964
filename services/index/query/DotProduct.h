#pragma once

#include <cstddef>

namespace kestrel::index {

float dotProduct(const float* a, const float* b, std::size_t length);

} // namespace kestrel::index
