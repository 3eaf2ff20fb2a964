#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace kestrel::index {

class SnapshotReader;
class SnapshotWriter;

/// Vectors of one length by slot, back to back in pieces that never move: growing copies nothing. In
/// snapshots they have a file of their own that is carried on from one snapshot to the next, so that each
/// writes only the vectors that are new.
class VectorColumn {
public:
    std::size_t dimensions() const { return mDimensions; }
    std::uint32_t size() const { return static_cast<std::uint32_t>(mChecksums.size()); }
    const float* at(std::uint32_t slot) const {
        return mPieces[slot / kPieceSlots].get() + (slot % kPieceSlots) * mDimensions;
    }
    std::uint32_t add(const std::vector<float>& vector);
    void replace(std::uint32_t slot, const std::vector<float>& vector);

    /// Writes some of what the snapshot's file lacks; false when it lacks nothing. What a save is to write
    /// while everybody waits gets small by it.
    bool saveAhead(SnapshotWriter& writer) const;
    void save(SnapshotWriter& writer) const;
    void load(SnapshotReader& reader);
    /// Whether the vector was read as it had been written. The file may be ahead of the snapshot: slots of
    /// documents that are gone may hold other vectors by then.
    bool isIntact(std::uint32_t slot) const;

private:
    static constexpr std::uint32_t kPieceSlots = 4096;
    struct Free {
        void operator()(float* piece) const { std::free(piece); }
    };
    using Piece = std::unique_ptr<float, Free>;

    std::size_t slotBytes() const { return mDimensions * sizeof(float); }
    void addPiece();
    void write(SnapshotWriter& writer, std::uint32_t first, std::uint32_t count) const;

    std::size_t mDimensions = 0;
    std::vector<Piece> mPieces;
    std::vector<std::uint32_t> mChecksums;
    std::vector<std::uint32_t> mDamaged; ///< slots that the file had otherwise, ascending

    // How far the file is: only the one who saves changes these, or the one writer while nobody saves.
    mutable std::string mFile;
    mutable std::uint32_t mSaved = 0;             ///< the file has the slots before it,
    mutable std::vector<std::uint32_t> mReplaced; ///< but not these
};

} // namespace kestrel::index
