#pragma once

#include "storage/WriteQueue.h"

#include <map>
#include <shared_mutex>
#include <string>
#include <vector>

namespace kestrel::index {

/// The indices by name.
class Catalogue {
public:
    Catalogue(DocumentStore& store, WriteQueue& writes) : mStore(store), mWrites(writes) {}

    /// Builds the indices from the documents. Throws DataFolderError when a document cannot be read.
    void load();

    IndexPtr find(const std::string& name) const;
    /// The index, or a refusal with status 404.
    IndexPtr get(const std::string& name) const;
    std::vector<IndexPtr> all() const;

    IndexPtr create(const std::string& name, const Json& settings, const Json& mappings);
    /// For a write to a name that may not exist yet.
    IndexPtr getOrCreate(const std::string& name);
    void remove(const std::string& name);

private:
    void insert(const IndexPtr& index);

    DocumentStore& mStore;
    WriteQueue& mWrites;
    mutable std::shared_mutex mMutex;
    std::map<std::string, IndexPtr> mByName;
};

/// Throws when the name cannot be one of an index.
void checkIndexName(const std::string& name);

/// Whether the text fits the pattern, in which "*" stands for any text and "?" for one character.
bool matchesPattern(std::string_view pattern, std::string_view text);

} // namespace kestrel::index
