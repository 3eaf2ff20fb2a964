#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kestrel::index {

/// Told how many of how many documents are done.
using Progress = std::function<void(std::size_t done, std::size_t all)>;

struct CheckReport {
    std::size_t documents = 0;
    std::size_t indices = 0;
    std::vector<std::string> damage; ///< the first findings, in words
    std::size_t findings = 0;
};

/// Reads everything in the database of documents: the database's own structure, the checksum of every row,
/// whether identifiers are unique, every mapping and every document by it. With a folder of snapshots,
/// compares what is derived with the documents. Changes nothing, and may be run beside a running service.
/// Throws DataFolderError when the file is no database of this service.
CheckReport check(const std::filesystem::path& documents, const std::filesystem::path& snapshots,
                  const Progress& progress);

} // namespace kestrel::index
