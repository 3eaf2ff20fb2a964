#pragma once

#include "storage/Sqlite.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace kestrel::index {

/// The tables of the store and the checksums of their rows.
namespace schema {

std::int64_t documentChecksum(std::int64_t row, std::string_view id, std::int64_t version,
                              std::string_view source);
std::int64_t indexChecksum(std::string_view name, std::string_view uuid, std::int64_t created,
                           std::string_view settings, std::string_view mapping);
std::int64_t securityChecksum(std::string_view kind, std::string_view name, std::string_view body);

/// Creates an empty database atomically.
void create(const std::filesystem::path& file);

/// Whether the database has an earlier format. Throws DataFolderError unless it belongs to this service and
/// has a known format.
bool isOutdated(SqliteConnection& connection, const std::filesystem::path& file);

/// Upgrades a database of an earlier format in one transaction.
void upgrade(SqliteConnection& connection);

} // namespace schema

} // namespace kestrel::index
