#include "engine/Similarity.h"

#include <bit>
#include <cmath>
#include <cstddef>

namespace kestrel::index {

namespace {

constexpr float kK1 = 1.2F;
constexpr float kB = 0.75F;

/// A number with four significant bits: an implied leading one, three stored bits, and a shift.
std::uint32_t toFloat4(std::uint32_t value) {
    const auto bits = static_cast<std::uint32_t>(std::bit_width(value));
    if (bits < 4) return value;
    const std::uint32_t shift = bits - 4;
    return ((value >> shift) & 0x07U) | ((shift + 1) << 3U);
}

std::uint32_t fromFloat4(std::uint32_t code) {
    const std::uint32_t mantissa = code & 0x07U;
    const std::uint32_t shift = code >> 3U;
    return shift == 0 ? mantissa : (mantissa | 0x08U) << (shift - 1);
}

/// Codes that large lengths do not need represent small lengths exactly.
constexpr std::uint32_t kLargestCode = 231; // toFloat4(2^31 - 1)
constexpr std::uint32_t kExactLengths = 255 - kLargestCode;

} // namespace

std::uint8_t encodeLength(std::uint32_t length) {
    if (length < kExactLengths) return static_cast<std::uint8_t>(length);
    return static_cast<std::uint8_t>(kExactLengths + toFloat4(length - kExactLengths));
}

std::uint32_t decodeLength(std::uint8_t code) {
    if (code < kExactLengths) return code;
    return kExactLengths + fromFloat4(code - kExactLengths);
}

Bm25::Bm25(const FieldStatistics& field) : mDocuments(field.documents) {
    const auto average =
        static_cast<float>(static_cast<double>(field.terms) / static_cast<double>(field.documents));
    for (std::size_t code = 0; code < mInverseNorms.size(); ++code) {
        const auto length = static_cast<float>(decodeLength(static_cast<std::uint8_t>(code)));
        mInverseNorms[code] = 1.0F / (kK1 * ((1.0F - kB) + kB * length / average));
    }
}

float Bm25::weight(std::uint64_t documentFrequency, float boost) const {
    const auto frequency = static_cast<double>(documentFrequency);
    const auto idf = static_cast<float>(
        std::log(1.0 + (static_cast<double>(mDocuments) - frequency + 0.5) / (frequency + 0.5)));
    return boost * (1.0F + kK1) * idf;
}

} // namespace kestrel::index
