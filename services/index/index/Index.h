#pragma once

#include "index/DocumentParser.h"
#include "index/FieldData.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel {

/// Names one state of one document for as long as the process runs: a changed document gets a new row.
using RowId = std::int64_t;
using Prepared = std::shared_ptr<const PreparedDocument>;

/// Row numbers of an index begin with its number; the rest is the sequence number of the write.
constexpr int sequenceBits = 40;
constexpr RowId sequenceOf(RowId row) {
    return row & ((RowId{1} << sequenceBits) - 1);
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

    const IndexInfo& info() const { return info_; }
    const std::string& name() const { return info_.name; }

    /// Takes a document apart, adding the fields that the mapping did not know.
    Prepared prepare(const Json& document, const std::string& id);
    Json mappings() const;
    /// Grows with every change of the mapping; the writer stores the mapping when it has grown.
    std::uint64_t mappingVersion() const { return mappingVersion_; }
    /// What of it is stored. Only the writer uses these two.
    std::uint64_t storedMappingVersion() const { return storedMappingVersion_; }
    void setStoredMappingVersion(std::uint64_t version) { storedMappingVersion_ = version; }

    /// A row for the next write. Only the writer calls it.
    RowId takeRow() { return ++lastRow_; }
    std::optional<RowId> rowOf(std::string_view id) const;
    void apply(const std::vector<DocumentChange>& changes);

    bool deleted() const { return deleted_; }
    void markDeleted() { deleted_ = true; }

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

    const IndexInfo info_;
    mutable std::shared_mutex mutex_;
    Mapping mapping_;
    std::atomic<std::uint64_t> mappingVersion_{0};
    std::uint64_t storedMappingVersion_ = 0;
    std::atomic<bool> deleted_{false};
    RowId lastRow_;

    std::vector<RowId> rows_; ///< by ordinal
    StringTable ids_;
    std::vector<Ordinal> ordinals_; ///< by number of the identifier; noOrdinal for a deleted document
    std::vector<Space> spaces_;
    std::vector<std::unique_ptr<FieldData>> data_;

    static constexpr Ordinal noOrdinal = UINT32_MAX;
};

/// Holds the index still while a query reads it.
class IndexView {
public:
    explicit IndexView(const Index& index) : index_(index), lock_(index.mutex_) {}

    const Index& index() const { return index_; }
    const Mapping& mapping() const { return index_.mapping_; }
    const Bitmap& live(SpaceId space) const { return index_.spaces_[space].live; }
    /// One more than the largest ordinal of the space.
    Ordinal end(SpaceId space) const { return index_.spaces_[space].next; }
    Ordinal parent(SpaceId space, Ordinal child) const { return index_.spaces_[space].parents[child]; }
    RowId row(Ordinal ordinal) const { return index_.rows_[ordinal]; }
    std::optional<Ordinal> ordinalOf(std::string_view id) const;

    /// Null when no document holds the field yet.
    const FieldData* data(FieldId id) const {
        return id < index_.data_.size() ? index_.data_[id].get() : nullptr;
    }
    template <typename Data>
    const Data* data(FieldId id) const {
        return static_cast<const Data*>(data(id));
    }

private:
    const Index& index_;
    std::shared_lock<std::shared_mutex> lock_;
};

} // namespace kestrel
