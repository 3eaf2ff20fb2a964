#include "query/DotProduct.h"

#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kestrel::index {
namespace {

using DotProduct = float (*)(const float*, const float*, std::size_t);

float plainDotProduct(const float* a, const float* b, std::size_t length) {
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

#if defined(__x86_64__)

/// Four sums of eight numbers hide the latency of the multiply-adds behind each other.
__attribute__((target("avx2,fma"))) float avx2DotProduct(const float* a, const float* b, std::size_t length) {
    constexpr std::size_t kWidth = 8;
    constexpr std::size_t kStep = 4 * kWidth;
    __m256 first = _mm256_setzero_ps();
    __m256 second = first;
    __m256 third = first;
    __m256 fourth = first;
    std::size_t i = 0;
    const auto add = [&](std::size_t offset, __m256 sum) __attribute__((target("avx2,fma"))) {
        return _mm256_fmadd_ps(_mm256_loadu_ps(a + i + offset), _mm256_loadu_ps(b + i + offset), sum);
    };
    for (; i + kStep <= length; i += kStep) {
        first = add(0, first);
        second = add(kWidth, second);
        third = add(2 * kWidth, third);
        fourth = add(3 * kWidth, fourth);
    }
    const __m256 sum = _mm256_add_ps(_mm256_add_ps(first, second), _mm256_add_ps(third, fourth));
    alignas(32) std::array<float, kWidth> lanes{};
    _mm256_store_ps(lanes.data(), sum);
    float total = 0;
    for (const float lane : lanes)
        total += lane;
    for (; i < length; ++i)
        total += a[i] * b[i];
    return total;
}

#endif

/// The fastest form that this processor can run.
DotProduct chooseDotProduct() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0) return avx2DotProduct;
#endif
    return plainDotProduct;
}

} // namespace

float dotProduct(const float* a, const float* b, std::size_t length) {
    static const DotProduct chosen = chooseDotProduct();
    return chosen(a, b, length);
}

} // namespace kestrel::index
