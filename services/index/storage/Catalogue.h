#pragma once

#include "storage/WriteQueue.h"

#include <filesystem>
#include <map>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

namespace kestrel::index {

/// The indices by name.
class Catalogue {
public:
    Catalogue(DocumentStore& store, WriteQueue& writes) : mStore(store), mWrites(writes) {}

    /// Builds the indices from their snapshots in the folder and the documents that came after, or from all
    /// documents. What is damaged is set aside.
    void load(const std::filesystem::path& snapshots);

    /// Null when there is none. Throws an ApiError when its description is damaged.
    IndexPtr find(const std::string& name) const;
    /// The index, or a refusal with status 404.
    IndexPtr get(const std::string& name) const;
    std::vector<IndexPtr> all() const;

    IndexPtr create(const std::string& name, const Json& settings, const Json& mappings);
    /// For a write to a name that may not exist yet.
    IndexPtr getOrCreate(const std::string& name);
    /// The index that was removed; null when it was one whose description is damaged.
    IndexPtr remove(const std::string& name);

private:
    void insert(const IndexPtr& index);
    /// The index as its snapshot has it, without the documents that were deleted since. Null when there is
    /// none that can be used.
    IndexPtr fromSnapshot(const DocumentStore::StoredIndex& stored, const std::filesystem::path& file,
                          RowId& covered);
    std::optional<std::int64_t> damagedNumber(const std::string& name) const;

    DocumentStore& mStore;
    WriteQueue& mWrites;
    mutable std::shared_mutex mMutex;
    std::map<std::string, IndexPtr> mByName;
    std::map<std::string, std::int64_t> mDamaged; ///< indices without a readable mapping, with their numbers
};

/// Throws when the name cannot be one of an index.
void checkIndexName(const std::string& name);

/// Whether the text fits the pattern, in which "*" stands for any text and "?" for one character.
bool matchesPattern(std::string_view pattern, std::string_view text);

} // namespace kestrel::index
