#include "kestrelml/text/EditDistance.h"

#include <algorithm>
#include <array>
#include <string>

namespace kestrelml::detail {
namespace {

constexpr std::size_t kRows = 64;
constexpr std::size_t kMostWholeBlocks = 3; // for longer phrases only a band of the table is computed
constexpr std::size_t kFirstBand = 128;     // tried first: most compared texts are close

/// One column of 64 rows of the table, as differences: the bit of a row is set in `up` when the row is one
/// more than the row before, in `down` when it is one less.
struct Block {
    std::uint64_t up = ~std::uint64_t{0};
    std::uint64_t down = 0;
};

/// How a row differs from the same row in the column before: at most one bit is set.
struct Step {
    std::uint64_t up;
    std::uint64_t down;
};

/// Moves a block to the next column. `above` is the step of the row above it, the result that of row
/// `lastRow`.
inline Step advance(Block& block, std::uint64_t equal, Step above, std::size_t lastRow) {
    const std::uint64_t vertical = equal | block.down;
    equal |= above.down;
    const std::uint64_t horizontal = (((equal & block.up) + block.up) ^ block.up) | equal;
    std::uint64_t up = block.down | ~(horizontal | block.up);
    std::uint64_t down = block.up & horizontal;
    const Step last{up >> lastRow & 1, down >> lastRow & 1};
    up = up << 1 | above.up;
    down = down << 1 | above.down;
    block.up = down | ~(vertical | up);
    block.down = up & vertical;
    return last;
}

/// The last row of the table, column by column.
template <std::size_t Extent>
class LastRow {
public:
    /// @param top Step of the row above the first: up for whole texts, none for pieces that begin anywhere.
    LastRow(std::span<Block, Extent> blocks, const std::vector<std::uint64_t>& places, std::size_t length,
            Step top)
        : mBlocks(blocks), mPlaces(places.data()), mLast((length - 1) % kRows), mTop(top), mValue(length) {}

    std::size_t advanceTo(std::uint32_t unit) {
        const std::uint64_t* equal = mPlaces + unit * mBlocks.size();
        Step step = mTop;
        for (std::size_t i = 0; i + 1 < mBlocks.size(); ++i)
            step = advance(mBlocks[i], equal[i], step, kRows - 1);
        step = advance(mBlocks.back(), equal[mBlocks.size() - 1], step, mLast);
        mValue += step.up;
        mValue -= step.down;
        return mValue;
    }

private:
    std::span<Block, Extent> mBlocks;
    const std::uint64_t* mPlaces;
    std::size_t mLast;
    Step mTop;
    std::size_t mValue;
};

/// Calls `use` with blocks whose number the compiler knows, for phrases of usual length.
template <typename Use>
auto withBlocks(std::size_t count, Use use) {
    const auto fixed = [&]<std::size_t Count>() {
        std::array<Block, Count> blocks;
        return use(std::span(blocks));
    };
    switch (count) {
    case 1:
        return fixed.template operator()<1>();
    case 2:
        return fixed.template operator()<2>();
    case 3:
        return fixed.template operator()<3>();
    default:
        break;
    }
    std::vector<Block> blocks(count);
    return use(std::span(blocks));
}

} // namespace

EditDistance::EditDistance(std::u16string_view phrase)
    : mLength(phrase.size()), mBlocks((phrase.size() + kRows - 1) / kRows), mPlaces(mBlocks) {
    std::u16string units(phrase);
    std::sort(units.begin(), units.end());
    units.erase(std::unique(units.begin(), units.end()), units.end());
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto number = static_cast<std::uint32_t>(i + 1);
        if (units[i] < mLatin.size()) {
            mLatin[units[i]] = number;
        } else {
            mOthers.emplace_back(units[i], number);
        }
    }
    mPlaces.resize((units.size() + 1) * mBlocks);
    for (std::size_t i = 0; i < phrase.size(); ++i)
        mPlaces[numberOf(phrase[i]) * mBlocks + i / kRows] |= std::uint64_t{1} << (i % kRows);
}

std::uint32_t EditDistance::numberOf(char16_t unit) const {
    if (unit < mLatin.size()) return mLatin[unit];
    const auto found = std::lower_bound(mOthers.begin(), mOthers.end(), std::pair{unit, std::uint32_t{0}});
    return found != mOthers.end() && found->first == unit ? found->second : 0;
}

EditDistance::Encoded EditDistance::encode(std::u16string_view text) const {
    Encoded encoded(text.size());
    std::transform(text.begin(), text.end(), encoded.begin(), [&](char16_t unit) { return numberOf(unit); });
    return encoded;
}

std::size_t EditDistance::to(EncodedView text, std::size_t most) const {
    const auto [shorter, longer] = std::minmax({mLength, text.size()});
    if (shorter == 0 || longer - shorter > most) return longer;
    most = std::min(most, longer);
    if (mBlocks > kMostWholeBlocks) {
        for (std::size_t guess = kFirstBand; guess < most / 2; guess *= 4) {
            const std::size_t distance = inBand(text, guess);
            if (distance <= guess) return distance;
        }
        return inBand(text, most);
    }
    return withBlocks(mBlocks, [&](auto blocks) {
        LastRow row(blocks, mPlaces, mLength, {1, 0});
        std::size_t distance = mLength;
        for (std::size_t j = 0; j < text.size(); ++j) {
            distance = row.advanceTo(text[j]);
            if (distance > most + (text.size() - 1 - j)) return most + 1; // a column takes off one at most
        }
        return distance;
    });
}

/// As `to`, but computes only blocks that hold cells up to `most` off the diagonal (Ukkonen 1985): a path
/// through other cells costs more. Cells outside are taken to be as large as they can be.
std::size_t EditDistance::inBand(EncodedView text, std::size_t most) const {
    if (text.size() + most < mLength || mLength + most < text.size()) return most + 1;
    const auto rowsOf = [&](std::size_t block) { return std::min(kRows, mLength - block * kRows); };
    std::vector<Block> blocks(mBlocks);
    std::size_t last = 0;
    std::size_t distance = rowsOf(0); // of the last row of block `last`
    for (std::size_t j = 0; j < text.size(); ++j) {
        for (const std::size_t needed = std::min(mBlocks - 1, (j + most) / kRows); last < needed;)
            distance += rowsOf(++last);
        const std::uint64_t* equal = mPlaces.data() + text[j] * mBlocks;
        Step step{1, 0};
        for (std::size_t i = j > most ? (j - most) / kRows : 0; i <= last; ++i)
            step = advance(blocks[i], equal[i], step, rowsOf(i) - 1);
        distance += step.up;
        distance -= step.down;
        if (last + 1 == mBlocks && distance > most + (text.size() - 1 - j)) return most + 1;
    }
    return distance;
}

std::vector<std::size_t> EditDistance::toPiecesEndingAt(EncodedView text) const {
    std::vector<std::size_t> distances(text.size() + 1);
    if (mLength == 0) return distances;
    distances.front() = mLength;
    withBlocks(mBlocks, [&](auto blocks) {
        LastRow row(blocks, mPlaces, mLength, {0, 0});
        for (std::size_t j = 0; j < text.size(); ++j)
            distances[j + 1] = row.advanceTo(text[j]);
    });
    return distances;
}

} // namespace kestrelml::detail
