#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kestrel::index {

/// Called with the number of documents done and their total.
using Progress = std::function<void(std::size_t done, std::size_t all)>;

struct CheckReport {
    std::size_t documents = 0;
    std::size_t indices = 0;
    std::vector<std::string> damage; ///< descriptions of the first findings
    std::size_t findings = 0;
};

/// Checks the structure of the database, the checksum of every row, that identifiers are unique, every
/// mapping, and every document against its mapping; with a folder of snapshots, also those against the
/// documents. Changes nothing, and the service may be running. Throws DataFolderError when the file is not a
/// database of this service.
CheckReport check(const std::filesystem::path& documents, const std::filesystem::path& snapshots,
                  const Progress& progress);

} // namespace kestrel::index
