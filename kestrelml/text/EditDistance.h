#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrelml::detail {

/// Levenshtein distances of many texts to one phrase: unit cost for insertion, deletion and substitution of a
/// UTF-16 unit. Computes 64 rows of the usual table at once (Myers 1999, in blocks as by Hyyrö 2003).
class EditDistance {
public:
    /// A text, its units numbered as in the phrase.
    using Encoded = std::vector<std::uint32_t>;
    using EncodedView = std::span<const std::uint32_t>;

    explicit EditDistance(std::u16string_view phrase);

    Encoded encode(std::u16string_view text) const;

    /// Returns the distance between the phrase and `text` if it is at most `most`, else any number above
    /// `most`. Small distances and low limits are cheaper.
    std::size_t to(EncodedView text, std::size_t most) const;

    /// Returns, for each n from 0 to the size of `text`, the smallest distance between the phrase and any
    /// substring of `text` that ends before unit n, the empty one included.
    std::vector<std::size_t> toPiecesEndingAt(EncodedView text) const;

private:
    std::uint32_t numberOf(char16_t unit) const;
    std::size_t inBand(EncodedView text, std::size_t most) const;

    std::size_t mLength;
    std::size_t mBlocks;
    // The units of the phrase are numbered from 1; 0 is any other unit.
    std::array<std::uint32_t, 256> mLatin{};
    std::vector<std::pair<char16_t, std::uint32_t>> mOthers; ///< sorted
    std::vector<std::uint64_t> mPlaces; ///< for each number, its positions in the phrase as bits
};

} // namespace kestrelml::detail
