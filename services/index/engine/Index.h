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

/// Names one state of one document: a changed document gets a new row, and no row is ever given twice.
using RowId = std::int64_t;
using Prepared = std::shared_ptr<const PreparedDocument>;
using MappingPtr = std::shared_ptr<const Mapping>;

/// Row numbers of an index begin with its number; the rest is the sequence number of the write.
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

/// One document leaving the index, entering it, or both at once.
struct DocumentChange {
    struct State {
        RowId row;
        Prepared content; ///< null for a document that cannot be read: it is set aside
    };
    std::string id;
    std::optional<State> removed;
    std::optional<State> added;
};

/// One index in memory: its mapping and everything that answers queries. The documents themselves lie in the
/// document store; this is derived from them and can be made again at any time.
///
/// Any number of readers look at it through an IndexView while one writer at a time applies changes.
class Index final {
public:
    Index(IndexInfo info, MappingPtr mapping, RowId lastRow);

    const IndexInfo& info() const { return mInfo; }
    const std::string& name() const { return mInfo.name; }

    MappingPtr mapping() const;
    /// Takes a document apart. Null when it holds fields that the mapping lacks: the writer adds those.
    Prepared prepare(const Json& document, const std::string& id) const;

    /// Only the writer calls the following.
    RowId takeRow() { return ++mLastRow; }
    RowId lastRow() const { return mLastRow; }
    /// mapping: the present one with further fields.
    void setMapping(MappingPtr mapping);
    void apply(const std::vector<DocumentChange>& changes);
    /// Whether so many more documents with so many nested objects have room.
    bool hasRoomFor(std::size_t documents, std::size_t children) const;
    /// Whether the identifier is, or was lately, that of a document.
    bool knows(std::string_view id) const;
    /// Remembers an identifier of a deleted document.
    void remember(std::string_view id);

    std::optional<RowId> rowOf(std::string_view id) const;
    /// Takes a document that cannot be read out of what is searched. Its identifier keeps its row, so that it
    /// is reported when it is asked for, and can be written anew or deleted.
    void setAside(RowId row);
    /// Removes rows that are gone from the store, of documents whose content is not known any more.
    void forget(const std::vector<RowId>& rows);

    /// Writes everything that is derived from the documents up to the last row that it covers.
    void save(SnapshotWriter& writer) const;
    /// Reads it into an index without documents. Throws SnapshotError when it is another index's, or one in
    /// which hardly anything is alive; the index must be thrown away then. Returns the last row that is
    /// covered.
    RowId load(SnapshotReader& reader);
    /// After documents that are gone were forgotten. Throws SnapshotError when what was loaded is damaged.
    void requireIntact() const;
    /// The rows of all documents, ascending, those that are set aside included.
    std::vector<RowId> rows() const;
    /// Grows with every change.
    std::uint64_t changes() const { return mChanges; }
    std::size_t documentCount() const;

    bool deleted() const { return mDeleted; }
    void markDeleted() { mDeleted = true; }

private:
    friend class IndexView;

    /// The documents that fields are counted over: the index's own, or the objects of one nested field.
    struct Space {
        std::vector<Ordinal> parents; ///< nested objects: the document of each, ascending
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
    std::vector<Ordinal> mOrdinals; ///< by number of the identifier; noOrdinal for a deleted document
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
