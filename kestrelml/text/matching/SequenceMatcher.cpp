#include "kestrelml/text/matching/SequenceMatcher.h"

#include "kestrelml/text/matching/RepeatSearch.h"
#include "kestrelml/text/matching/RunLengthSearch.h"

#include <algorithm>
#include <optional>

namespace kestrelml::detail {
namespace {

/// Splits ranges at their longest blocks until nothing is left.
///
/// Of the two parts of a range the larger keeps the state of the search; only the smaller is searched afresh.
/// So each unit is set up at most log n times, however lopsided the splits are.
class BlockCollector {
public:
    BlockCollector(std::u16string_view a, std::u16string_view b, std::int64_t mostPairs)
        : mMostPairs(mostPairs), mRunLengths(a, b) {
        const TextRange whole{0, static_cast<std::int32_t>(a.size()), 0, static_cast<std::int32_t>(b.size())};
        if (!whole.canMatch()) return;
        if (!isSmall(whole)) mRepeats.emplace(mTree.emplace(a, b));
        mPending.push_back({whole, std::nullopt});
    }

    std::vector<MatchingBlock> collect() {
        while (!mPending.empty()) {
            Task task = std::move(mPending.back());
            mPending.pop_back();
            const MatchingBlock block = longest(task);
            if (block.size == 0) continue;
            mBlocks.push_back(block);
            split(std::move(task), block);
        }
        return std::move(mBlocks);
    }

private:
    struct Task {
        TextRange range;
        std::optional<RepeatSearch::Region> region;
    };

    bool isSmall(const TextRange& range) const {
        return std::int64_t{range.aSize()} * range.bSize() <= mMostPairs;
    }

    MatchingBlock longest(Task& task) {
        if (isSmall(task.range)) return mRunLengths.longest(task.range);
        if (!task.region) task.region = mRepeats->open(task.range);
        return mRepeats->longest(*task.region);
    }

    void split(Task&& task, const MatchingBlock& block) {
        TextRange larger{task.range.aBegin, block.a, task.range.bBegin, block.b};
        TextRange smaller{block.a + block.size, task.range.aEnd, block.b + block.size, task.range.bEnd};
        if (!larger.canMatch() || (smaller.canMatch() && smaller.size() > larger.size())) {
            std::swap(larger, smaller);
        }
        // The smaller goes last, to be taken first: then what is kept for later stays linear.
        if (larger.canMatch()) addLarger(std::move(task), larger);
        if (smaller.canMatch()) mPending.push_back({smaller, std::nullopt});
    }

    void addLarger(Task&& task, const TextRange& part) {
        const bool mostIsLeft = part.size() > task.range.size() / 3;
        if (task.region && mostIsLeft && !isSmall(part)) {
            mRepeats->narrow(*task.region, part);
            mPending.push_back({part, std::move(task.region)});
        } else {
            mPending.push_back({part, std::nullopt});
        }
    }

    std::int64_t mMostPairs;
    RunLengthSearch mRunLengths;
    std::optional<RepeatTree> mTree;
    std::optional<RepeatSearch> mRepeats;
    std::vector<Task> mPending;
    std::vector<MatchingBlock> mBlocks;
};

/// Joins blocks, given in order, that continue each other in both texts.
std::vector<MatchingBlock> mergeBlocks(const std::vector<MatchingBlock>& blocks) {
    std::vector<MatchingBlock> merged;
    for (const MatchingBlock& block : blocks) {
        if (!merged.empty() && merged.back().a + merged.back().size == block.a &&
            merged.back().b + merged.back().size == block.b) {
            merged.back().size += block.size;
        } else {
            merged.push_back(block);
        }
    }
    return merged;
}

} // namespace

std::vector<MatchingBlock> findMatchingBlocks(std::u16string_view a, std::u16string_view b) {
    return findMatchingBlocks(a, b, RunLengthSearch::kMostPairs);
}

std::vector<MatchingBlock> findMatchingBlocks(std::u16string_view a, std::u16string_view b,
                                              std::int64_t mostPairs) {
    std::vector<MatchingBlock> blocks = BlockCollector(a, b, mostPairs).collect();
    std::sort(blocks.begin(), blocks.end(),
              [](const MatchingBlock& x, const MatchingBlock& y) { return x.a < y.a; });
    blocks = mergeBlocks(blocks);
    blocks.push_back({static_cast<std::int32_t>(a.size()), static_cast<std::int32_t>(b.size()), 0});
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
