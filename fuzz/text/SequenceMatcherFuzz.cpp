// The fast sequence matcher against the plain one, over small alphabets.

#include "fuzz/text/Require.h"
#include "oracles/Oracles.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// The first byte chooses the alphabet and where the first text ends, the others are units.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kestrelml::detail;
    if (size < 2 || size > 600) return 0;
    const std::uint8_t mask = static_cast<std::uint8_t>((1U << (data[0] % 4 + 1)) - 1);
    const std::size_t sizeOfA = (size - 1) * (data[0] / 4) / 63;
    std::u16string a;
    std::u16string b;
    for (std::size_t i = 1; i < size; ++i)
        (i <= sizeOfA ? a : b) += static_cast<char16_t>(data[i] & mask);

    const auto plain = kestrel_test::plainMatchingBlocks(a, b);
    kestrel_fuzz::require(findMatchingBlocks(a, b) == plain, "both searches");
    kestrel_fuzz::require(findMatchingBlocks(a, b, 0) == plain, "search of large ranges");
    kestrel_fuzz::require(findMatchingBlocks(a, b, 100) == plain, "both searches, early");
    return 0;
}
