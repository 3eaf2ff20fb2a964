#pragma once

/// @file
/// Ratcliff-Obershelp comparison of two texts, with exactly the blocks of Python's
/// `difflib.SequenceMatcher(None, a, b, autojunk=False)` over UTF-16 units.

#include <cstdint>
#include <string_view>
#include <vector>

namespace kestrelml::detail {

/// `a[a, a + size)` equals `b[b, b + size)`.
struct MatchingBlock {
    std::int32_t a;
    std::int32_t b;
    std::int32_t size;

    friend bool operator==(const MatchingBlock& x, const MatchingBlock& y) = default;
};

/// Turns `a[a1, a2)` into `b[b1, b2)`.
struct Opcode {
    enum class Tag : std::uint8_t { Equal, Replace, Delete, Insert };
    Tag tag;
    std::int32_t a1, a2;
    std::int32_t b1, b2;

    friend bool operator==(const Opcode& x, const Opcode& y) = default;
};

/// Returns the matching blocks in order, those that continue each other merged, and last the empty block
/// (length of a, length of b, 0).
///
/// The longest common block (of these the one first in `a`, then first in `b`) is taken, then the same left
/// of it and right of it. Takes O(n log^2 n) time or less on every input tested, and linear memory.
std::vector<MatchingBlock> findMatchingBlocks(std::u16string_view a, std::u16string_view b);

/// The same with another limit on the number of pairs of units up to which a range is searched pair by pair.
/// Tests set 0, so that the search for larger ranges does all the work.
std::vector<MatchingBlock> findMatchingBlocks(std::u16string_view a, std::u16string_view b,
                                              std::int64_t mostPairs);

/// Returns the steps from `a` to `b` that follow from the blocks, sentinel included.
std::vector<Opcode> toOpcodes(const std::vector<MatchingBlock>& blocks);

} // namespace kestrelml::detail
