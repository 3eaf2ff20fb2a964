#pragma once

#include "base/FairSharedMutex.h"
#include "base/Work.h"
#include "engine/DocumentParser.h"
#include "engine/FieldData.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

/// Identifies one state of one document: a changed document gets a new row, and rows are never reused.
using RowId = std::int64_t;
using Prepared = std::shared_ptr<const PreparedDocument>;
using MappingPtr = std::shared_ptr<const Mapping>;

/// The upper bits of a row are the number of its index, the lower ones the sequence number of the write.
constexpr int kSequenceBits = 40;
constexpr RowId sequenceOf(RowId row) {
    return row & ((RowId{1} << kSequenceBits) - 1);
}

struct IndexInfo {
    std::int64_t number;
    std::string name;
    std::string uuid;
    std::int64_t createdMs;
    Json settings;
};

/// A document that is removed from the index, added to it, or replaced.
struct DocumentChange {
    struct State {
        RowId row;
        Prepared content; ///< null for an unreadable document, which is set aside
    };
    std::string id;
    std::optional<State> removed;
    std::optional<State> added;
};

/// One index in memory: its mapping and everything that queries need. It is derived from the documents in the
/// document store and can be rebuilt from them at any time.
///
/// Any number of threads read it through an IndexView; one writer at a time applies changes.
class Index final {
public:
    Index(IndexInfo info, MappingPtr mapping, RowId lastRow);

    const IndexInfo& info() const { return mInfo; }
    const std::string& name() const { return mInfo.name; }

    MappingPtr mapping() const;
    /// Parses a document. Null when it has fields that the mapping lacks, which only the writer adds.
    Prepared prepare(const Json& document, const std::string& id) const;

    // For the writer only.
    RowId takeRow() { return ++mLastRow; }
    RowId lastRow() const { return mLastRow; }
    /// mapping: the current one with further fields.
    void setMapping(MappingPtr mapping);
    void apply(const std::vector<DocumentChange>& changes);
    /// Whether there are numbers left for so many more documents and nested objects.
    bool hasRoomFor(std::size_t documents, std::size_t children) const;
    /// Whether a document has, or recently had, the identifier.
    bool knows(std::string_view id) const;
    /// Remembers an identifier of a deleted document.
    void remember(std::string_view id);

    std::optional<RowId> rowOf(std::string_view id) const;
    /// Excludes an unreadable document from searches. Its identifier keeps its row, so that reading it
    /// reports the damage, and it can be overwritten or deleted.
    void setAside(RowId row);
    /// Removes documents that are no longer in the store and whose content is therefore unknown.
    void forget(const std::vector<RowId>& rows);

    /// Writes everything derived from the documents up to the last row covered.
    void save(SnapshotWriter& writer) const;
    /// Reads it into an empty index and returns the last row covered. Throws SnapshotError when it belongs to
    /// another index or consists mostly of deleted documents; the index must then be discarded.
    RowId load(SnapshotReader& reader);
    /// Call it after forget. Throws SnapshotError when what was loaded is damaged.
    void requireIntact() const;
    /// The rows of all documents, ascending, including those set aside.
    std::vector<RowId> rows() const;
    /// Increases with every change.
    std::uint64_t changes() const { return mChanges; }
    std::size_t documentCount() const;

    bool deleted() const { return mDeleted; }
    void markDeleted() { mDeleted = true; }

private:
    friend class IndexView;

    /// What fields are counted over: the documents themselves, or the objects of one nested field.
    struct Space {
        std::vector<Ordinal> parents; ///< the document of each nested object, ascending
        Bitmap live;
        Ordinal next = 0;
    };

    void add(const std::string& id, const DocumentChange::State& state);
    void remove(const std::string& id, const PreparedDocument* content);
    void hide(Ordinal ordinal);
    bool saveAhead(SnapshotWriter& writer) const;
    void requireComplete() const;
    FieldData& dataOf(FieldId id);

    const IndexInfo mInfo;
    mutable FairSharedMutex mMutex;
    MappingPtr mMapping;
    std::atomic<bool> mDeleted{false};
    std::atomic<std::uint64_t> mChanges{0};
    RowId mLastRow;

    std::vector<RowId> mRows; ///< by ordinal, ascending
    StringTable mIds;
    std::vector<Ordinal> mOrdinals; ///< by number of the identifier; kNoOrdinal for a deleted document
    std::set<RowId> mSetAside;
    std::vector<Space> mSpaces;
    std::vector<std::unique_ptr<FieldData>> mData;
    bool mIncomplete = false;

    static constexpr Ordinal kNoOrdinal = UINT32_MAX;
};

/// Keeps the index from changing while a query reads it. Throws an ApiError when applying changes has failed.
class IndexView {
public:
    explicit IndexView(const Index& index) : mIndex(index), mLock(index.mMutex), mHold(index.mMutex) {
        index.requireComplete();
    }

    const Index& index() const { return mIndex; }
    const Mapping& mapping() const { return *mIndex.mMapping; }
    const Bitmap& live(SpaceId space) const { return mIndex.mSpaces[space].live; }
    /// One more than the largest ordinal of the space.
    Ordinal end(SpaceId space) const { return mIndex.mSpaces[space].next; }
    Ordinal parent(SpaceId space, Ordinal child) const { return mIndex.mSpaces[space].parents[child]; }
    RowId row(Ordinal ordinal) const { return mIndex.mRows[ordinal]; }
    std::optional<Ordinal> ordinalOf(std::string_view id) const;

    /// Null when no document holds the field yet.
    const FieldData* data(FieldId id) const {
        return id < mIndex.mData.size() ? mIndex.mData[id].get() : nullptr;
    }
    template <typename Data>
    const Data* data(FieldId id) const {
        return static_cast<const Data*>(data(id));
    }

private:
    const Index& mIndex;
    std::shared_lock<FairSharedMutex> mLock;
    Work::Hold mHold;
};

} // namespace kestrel::index
