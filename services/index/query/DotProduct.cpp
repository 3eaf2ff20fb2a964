#include "query/DotProduct.h"

#include <array>

namespace kestrel::index {

float dotProduct(const float* a, const float* b, std::size_t length) {
    // Independent sums let the compiler use vector instructions without reordering any one sum.
    constexpr std::size_t kLanes = 16;
    std::array<float, kLanes> sums{};
    std::size_t i = 0;
    for (; i + kLanes <= length; i += kLanes)
        for (std::size_t lane = 0; lane < kLanes; ++lane)
            sums[lane] += a[i + lane] * b[i + lane];
    float total = 0;
    for (; i < length; ++i)
        total += a[i] * b[i];
    for (const float sum : sums)
        total += sum;
    return total;
}

} // namespace kestrel::index
