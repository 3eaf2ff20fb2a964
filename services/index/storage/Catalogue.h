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

    /// Builds each index from its snapshot in the folder and the documents written later, or from all
    /// documents. What is damaged is set aside.
    void load(const std::filesystem::path& snapshots);

    /// Null when there is no such index. Throws an ApiError when its description is damaged.
    IndexPtr find(const std::string& name) const;
    /// As find, but throws an ApiError with status 404 when there is no such index.
    IndexPtr get(const std::string& name) const;
    std::vector<IndexPtr> all() const;

    IndexPtr create(const std::string& name, const Json& settings, const Json& mappings);
    /// Creates the index unless it exists.
    IndexPtr getOrCreate(const std::string& name);
    /// Returns the removed index; null when its description was damaged.
    IndexPtr remove(const std::string& name);

private:
    void insert(const IndexPtr& index);
    /// The index from its snapshot, without the documents deleted since. Null when there is no usable one.
    IndexPtr fromSnapshot(const DocumentStore::StoredIndex& stored, const std::filesystem::path& file,
                          RowId& covered);
    std::optional<std::int64_t> damagedNumber(const std::string& name) const;

    DocumentStore& mStore;
    WriteQueue& mWrites;
    mutable std::shared_mutex mMutex;
    std::map<std::string, IndexPtr> mByName;
    std::map<std::string, std::int64_t> mDamaged; ///< numbers of indices with a damaged description
};

/// Throws an ApiError when the name is not valid for an index.
void checkIndexName(const std::string& name);

/// Whether the text matches the pattern; "*" matches any text and "?" one character.
bool matchesPattern(std::string_view pattern, std::string_view text);

} // namespace kestrel::index
