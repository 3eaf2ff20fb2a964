#include "kestrelml/align/SequenceMatcher.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <unordered_map>

namespace kestrelml::detail {
namespace {

using Positions = std::unordered_map<char16_t, std::vector<std::int32_t>>;

struct Range {
    std::int32_t alo, ahi, blo, bhi;
};

MatchingBlock longestMatch(std::u16string_view a, const Positions& positions, std::vector<std::int32_t>& runs,
                           std::vector<std::int32_t>& next, const Range& range) {
    MatchingBlock best{range.alo, range.blo, 0};
    for (std::int32_t i = range.alo; i < range.ahi; ++i) {
        const auto found = positions.find(a[static_cast<std::size_t>(i)]);
        std::fill(next.begin() + range.blo, next.begin() + range.bhi + 1, 0);
        if (found != positions.end()) {
            for (const std::int32_t j : found->second) {
                if (j < range.blo || j >= range.bhi) continue;
                const auto at = static_cast<std::size_t>(j);
                next[at + 1] = (j == range.blo ? 0 : runs[at]) + 1;
                if (next[at + 1] > best.size) {
                    best = {i - next[at + 1] + 1, j - next[at + 1] + 1, next[at + 1]};
                }
            }
        }
        std::swap(runs, next);
    }
    std::fill(runs.begin(), runs.end(), 0);
    return best;
}

} // namespace

std::vector<MatchingBlock> findMatchingBlocks(std::u16string_view a, std::u16string_view b) {
    const auto n = static_cast<std::int32_t>(a.size());
    const auto m = static_cast<std::int32_t>(b.size());
    Positions positions;
    for (std::int32_t j = 0; j < m; ++j)
        positions[b[static_cast<std::size_t>(j)]].push_back(j);
    std::vector<std::int32_t> runs(b.size() + 1);
    std::vector<std::int32_t> next(b.size() + 1);
    std::vector<MatchingBlock> found;
    std::vector<Range> pending = {{0, n, 0, m}};
    while (!pending.empty()) {
        const Range range = pending.back();
        pending.pop_back();
        const MatchingBlock block = longestMatch(a, positions, runs, next, range);
        if (block.size == 0) continue;
        found.push_back(block);
        if (range.alo < block.a && range.blo < block.b) {
            pending.push_back({range.alo, block.a, range.blo, block.b});
        }
        if (block.a + block.size < range.ahi && block.b + block.size < range.bhi) {
            pending.push_back({block.a + block.size, range.ahi, block.b + block.size, range.bhi});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const MatchingBlock& x, const MatchingBlock& y) { return x.a < y.a; });
    std::vector<MatchingBlock> blocks;
    for (const MatchingBlock& block : found) {
        if (!blocks.empty() && blocks.back().a + blocks.back().size == block.a &&
            blocks.back().b + blocks.back().size == block.b) {
            blocks.back().size += block.size;
        } else {
            blocks.push_back(block);
        }
    }
    blocks.push_back({n, m, 0});
    return blocks;
}

std::vector<Opcode> toOpcodes(const std::vector<MatchingBlock>& blocks) {
    std::vector<Opcode> opcodes;
    std::int32_t i = 0;
    std::int32_t j = 0;
    for (const MatchingBlock& block : blocks) {
        if (i < block.a && j < block.b) {
            opcodes.push_back({Opcode::Tag::Replace, i, block.a, j, block.b});
        } else if (i < block.a) {
            opcodes.push_back({Opcode::Tag::Delete, i, block.a, j, j});
        } else if (j < block.b) {
            opcodes.push_back({Opcode::Tag::Insert, i, i, j, block.b});
        }
        i = block.a + block.size;
        j = block.b + block.size;
        if (block.size > 0) opcodes.push_back({Opcode::Tag::Equal, block.a, i, block.b, j});
    }
    return opcodes;
}

} // namespace kestrelml::detail
