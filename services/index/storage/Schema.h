#pragma once

#include "storage/Sqlite.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace kestrel::index {

/// The tables of the store, and what keeps their rows honest.
namespace schema {

std::int64_t documentChecksum(std::int64_t row, std::string_view id, std::int64_t version,
                              std::string_view source);
std::int64_t indexChecksum(std::string_view name, std::string_view uuid, std::int64_t created,
                           std::string_view settings, std::string_view mapping);
std::int64_t securityChecksum(std::string_view kind, std::string_view name, std::string_view body);

/// Makes an empty database, whole or not at all.
void create(const std::filesystem::path& file);

/// Throws DataFolderError unless the database is one of this service, in a format that can be read. True when
/// it has an earlier format.
bool isOutdated(SqliteConnection& connection, const std::filesystem::path& file);

/// Brings a database of an earlier format up to date, in one transaction.
void upgrade(SqliteConnection& connection);

} // namespace schema

} // namespace kestrel::index
