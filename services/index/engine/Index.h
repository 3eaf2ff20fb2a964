#pragma once

#include "engine/DocumentParser.h"
#include "engine/FieldData.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::index {

/// Names one state of one document for as long as the process runs: a changed document gets a new row.
using RowId = std::int64_t;
using Prepared = std::shared_ptr<const PreparedDocument>;

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
        Prepared content;
    };
    std::string id;
    std::optional<State> removed;
    std::optional<State> added;
};

/// One index in memory: its mapping and everything that answers queries. The documents themselves lie in the
/// document store; this is derived from them and can be made again at any time.
///
/// Any number of readers look at it through an IndexView while one writer at a time applies changes.
class Index final : private DocumentParser::Fields {
public:
    Index(IndexInfo info, const Json& mappings, RowId lastRow);

    const IndexInfo& info() const { return mInfo; }
    const std::string& name() const { return mInfo.name; }

    /// Takes a document apart, adding the fields that the mapping did not know.
    Prepared prepare(const Json& document, const std::string& id);
    Json mappings() const;
    /// Grows with every change of the mapping; the writer stores the mapping when it has grown.
    std::uint64_t mappingVersion() const { return mMappingVersion; }
    /// What of it is stored. Only the writer uses these two.
    std::uint64_t storedMappingVersion() const { return mStoredMappingVersion; }
    void setStoredMappingVersion(std::uint64_t version) { mStoredMappingVersion = version; }

    /// A row for the next write. Only the writer calls it.
    RowId takeRow() { return ++mLastRow; }
    std::optional<RowId> rowOf(std::string_view id) const;
    void apply(const std::vector<DocumentChange>& changes);

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

    FieldId resolve(const std::string& path, FieldType ifNew, SpaceId space) override;
    const Field& field(FieldId id) const override;
    std::size_t dimensions(FieldId id, std::size_t ifUnknown) override;

    void add(const std::string& id, const DocumentChange::State& state);
    void remove(const std::string& id, const PreparedDocument& content);
    FieldData& dataOf(FieldId id);

    const IndexInfo mInfo;
    mutable std::shared_mutex mMutex;
    Mapping mMapping;
    std::atomic<std::uint64_t> mMappingVersion{0};
    std::uint64_t mStoredMappingVersion = 0;
    std::atomic<bool> mDeleted{false};
    RowId mLastRow;

    std::vector<RowId> mRows; ///< by ordinal
    StringTable mIds;
    std::vector<Ordinal> mOrdinals; ///< by number of the identifier; noOrdinal for a deleted document
    std::vector<Space> mSpaces;
    std::vector<std::unique_ptr<FieldData>> mData;

    static constexpr Ordinal kNoOrdinal = UINT32_MAX;
};

/// Holds the index still while a query reads it.
class IndexView {
public:
    explicit IndexView(const Index& index) : mIndex(index), mLock(index.mMutex) {}

    const Index& index() const { return mIndex; }
    const Mapping& mapping() const { return mIndex.mMapping; }
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
    std::shared_lock<std::shared_mutex> mLock;
};

} // namespace kestrel::index
