#pragma once

#include <array>
#include <cstdint>

namespace kestrel::index {

/// A field's length in one byte, exact up to 40 and then with four significant bits, as Lucene keeps it.
std::uint8_t encodeLength(std::uint32_t length);
std::uint32_t decodeLength(std::uint8_t code);

struct FieldStatistics {
    std::uint64_t documents = 0; ///< documents that hold the field
    std::uint64_t terms = 0;     ///< terms of all of them, repetitions included
};

/// BM25 with k1 = 1.2 and b = 0.75 in single precision, operation by operation as Lucene computes it, so that
/// scores, and with them the order of close hits, agree.
class Bm25 {
public:
    explicit Bm25(const FieldStatistics& field);

    /// The factor of a term that occurs in documentFrequency documents.
    float weight(std::uint64_t documentFrequency, float boost) const;
    float score(float weight, float frequency, std::uint8_t encodedLength) const {
        return weight - weight / (1.0F + frequency * mInverseNorms[encodedLength]);
    }

private:
    std::uint64_t mDocuments;
    std::array<float, 256> mInverseNorms{};
};

/// The length code of fields without lengths (keywords).
constexpr std::uint8_t kLengthOfOne = 1;

} // namespace kestrel::index
