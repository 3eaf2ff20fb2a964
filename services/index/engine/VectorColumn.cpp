#include "engine/VectorColumn.h"

#include "base/Checksum.h"
#include "base/Parallel.h"
#include "base/RandomId.h"
#include "engine/SnapshotFile.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace kestrel::index {

namespace {

constexpr std::size_t kHugePage = 2UL * 1024 * 1024;
constexpr std::size_t kNameBytes = 9;

std::uint32_t checksumOf(const float* vector, std::size_t bytes) {
    return Checksum().addBytes(vector, bytes).value();
}

} // namespace

void VectorColumn::addPiece() {
    const std::size_t bytes = (kPieceSlots * slotBytes() + kHugePage - 1) / kHugePage * kHugePage;
    Piece piece(static_cast<float*>(std::aligned_alloc(kHugePage, bytes)));
    if (!piece) throw std::bad_alloc();
    ::madvise(piece.get(), bytes, MADV_HUGEPAGE); // reading all of them is bound by memory: fewer page faults
    mPieces.push_back(std::move(piece));
}

std::uint32_t VectorColumn::add(const std::vector<float>& vector) {
    mDimensions = vector.size();
    const std::uint32_t slot = size();
    if (slot / kPieceSlots == mPieces.size()) addPiece();
    mChecksums.push_back(0);
    replace(slot, vector);
    return slot;
}

void VectorColumn::replace(std::uint32_t slot, const std::vector<float>& vector) {
    if (slot < mSaved) mReplaced.push_back(slot);
    float* const place = mPieces[slot / kPieceSlots].get() + (slot % kPieceSlots) * mDimensions;
    std::copy(vector.begin(), vector.end(), place);
    mChecksums[slot] = checksumOf(place, slotBytes());
}

bool VectorColumn::saveAhead(SnapshotWriter& writer) const {
    if (mSaved == size()) return false;
    if (mFile.empty()) mFile = randomId(kNameBytes);
    const std::uint32_t count = std::min(kPieceSlots - mSaved % kPieceSlots, size() - mSaved);
    write(writer, mSaved, count);
    mSaved += count;
    return true;
}

void VectorColumn::write(SnapshotWriter& writer, std::uint32_t first, std::uint32_t count) const {
    writer.companion(mFile).write(first * slotBytes(), at(first), count * slotBytes());
}

void VectorColumn::save(SnapshotWriter& writer) const {
    while (saveAhead(writer)) {
    }
    for (; !mReplaced.empty(); mReplaced.pop_back())
        write(writer, mReplaced.back(), 1);
    if (!mFile.empty()) writer.companion(mFile);
    writer.text(mFile);
    writer.number<std::uint64_t>(mDimensions);
    writer.column(mChecksums);
}

void VectorColumn::load(SnapshotReader& reader) {
    mFile = reader.text();
    mDimensions = reader.number<std::uint64_t>();
    reader.column(mChecksums);
    mSaved = size();
    if (size() == 0) return;
    const CompanionFile file = reader.companion(mFile);
    if (mDimensions == 0 || file.size() / slotBytes() < size())
        throw SnapshotError("the vectors of a snapshot are cut short");
    while (mPieces.size() * kPieceSlots < size())
        addPiece();
    std::vector<char> intact(size());
    std::atomic<bool> complete = true;
    inParallel(size(), kPieceSlots, [&](std::size_t first, std::size_t last) {
        for (auto slot = static_cast<std::uint32_t>(first); slot < last;) {
            // Small enough that the checksums find it in the processor's cache.
            const std::uint32_t end = std::min(
                {static_cast<std::uint32_t>(last), slot + 64, (slot / kPieceSlots + 1) * kPieceSlots});
            float* const place = mPieces[slot / kPieceSlots].get() + (slot % kPieceSlots) * mDimensions;
            if (!file.read(slot * slotBytes(), place, (end - slot) * slotBytes())) complete = false;
            for (; slot < end; ++slot)
                intact[slot] = checksumOf(at(slot), slotBytes()) == mChecksums[slot] ? 1 : 0;
        }
    });
    if (!complete) throw SnapshotError("the vectors of a snapshot cannot be read");
    for (std::uint32_t slot = 0; slot < size(); ++slot)
        if (intact[slot] == 0) mDamaged.push_back(slot);
}

bool VectorColumn::isIntact(std::uint32_t slot) const {
    return !std::binary_search(mDamaged.begin(), mDamaged.end(), slot);
}

} // namespace kestrel::index
