#include "storage/Schema.h"

#include "base/AtomicFile.h"
#include "base/Checksum.h"
#include "base/Json.h"
#include "engine/Mapping.h"
#include "storage/DataFolder.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <utility>
#include <vector>

namespace kestrel::index::schema {

namespace {

constexpr std::int64_t kApplicationId = 0x4B534E58; // "KSNX"
constexpr std::int64_t kFormat = 2;
constexpr std::int64_t kFirstFormat = 1;

/// Identifiers are unique within an index; the upper bits of a row are the number of its index. A sequence
/// remembers the last row of an index when it is not the row of a document.
constexpr const char* kTablesBesideDocuments =
    "CREATE UNIQUE INDEX documents_by_id ON documents (row >> 40, id);"
    "CREATE TABLE sequences (number INTEGER PRIMARY KEY, last INTEGER NOT NULL);"
    "CREATE TABLE tombstones (number INTEGER NOT NULL, id TEXT NOT NULL, version INTEGER NOT NULL, "
    "deleted INTEGER NOT NULL, PRIMARY KEY (number, id)) WITHOUT ROWID;"
    "CREATE TABLE removed_indices (number INTEGER PRIMARY KEY);";

constexpr const char* kTables =
    "CREATE TABLE indices (number INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, uuid TEXT "
    "NOT "
    "NULL, created INTEGER NOT NULL, settings TEXT NOT NULL, mappings TEXT NOT NULL, checksum INTEGER NOT "
    "NULL "
    "DEFAULT 0);"
    "CREATE TABLE documents (row INTEGER PRIMARY KEY, id TEXT NOT NULL, version INTEGER NOT NULL, source "
    "TEXT "
    "NOT NULL, checksum INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE security (kind TEXT NOT NULL, name TEXT NOT NULL, body TEXT NOT NULL, checksum INTEGER NOT "
    "NULL DEFAULT 0, PRIMARY KEY (kind, name));";

DataFolderError unreadable(const std::filesystem::path& file, const std::string& why) {
    return DataFolderError(fmt::format("{} cannot be used: {}; nothing was changed", file.string(), why));
}

std::string_view textOf(sqlite3_value* value) {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return {bytes == nullptr ? "" : bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

void documentChecksumFunction(sqlite3_context* context, int, sqlite3_value** values) {
    sqlite3_result_int64(context, documentChecksum(sqlite3_value_int64(values[0]), textOf(values[1]),
                                                   sqlite3_value_int64(values[2]), textOf(values[3])));
}

/// Mappings become a flat list, which keeps the numbers of the fields.
void convertIndices(SqliteConnection& connection) {
    struct Converted {
        std::int64_t number, checksum;
        std::string mapping;
    };
    std::vector<Converted> converted;
    SqliteStatement read(connection, "SELECT number, name, uuid, created, settings, mappings FROM indices");
    while (read.step()) {
        const Json mappings = Json::parse(read.textView(5), nullptr, false);
        const std::string mapping =
            Mapping::fromFirstFormat(mappings.is_object() ? mappings : Json::object()).toStored().dump();
        converted.push_back(
            {read.integer(0),
             indexChecksum(read.textView(1), read.textView(2), read.integer(3), read.textView(4), mapping),
             mapping});
    }
    SqliteStatement write(connection, "UPDATE indices SET mappings = ?, checksum = ? WHERE number = ?");
    for (const Converted& index : converted)
        write.bind(index.mapping).bind(index.checksum).bind(index.number).run();
}

void convertSecurity(SqliteConnection& connection) {
    std::vector<std::pair<std::int64_t, std::int64_t>> checksums;
    SqliteStatement read(connection, "SELECT rowid, kind, name, body FROM security");
    while (read.step())
        checksums.emplace_back(read.integer(0),
                               securityChecksum(read.textView(1), read.textView(2), read.textView(3)));
    SqliteStatement write(connection, "UPDATE security SET checksum = ? WHERE rowid = ?");
    for (const auto& [row, checksum] : checksums)
        write.bind(checksum).bind(row).run();
}

} // namespace

std::int64_t documentChecksum(std::int64_t row, std::string_view id, std::int64_t version,
                              std::string_view source) {
    return Checksum().add(row).add(id).add(version).add(source).value();
}

std::int64_t indexChecksum(std::string_view name, std::string_view uuid, std::int64_t created,
                           std::string_view settings, std::string_view mapping) {
    return Checksum().add(name).add(uuid).add(created).add(settings).add(mapping).value();
}

std::int64_t securityChecksum(std::string_view kind, std::string_view name, std::string_view body) {
    return Checksum().add(kind).add(name).add(body).value();
}

void create(const std::filesystem::path& file) {
    const std::filesystem::path partial = file.string() + ".partial";
    std::filesystem::remove(partial);
    std::filesystem::remove(partial.string() + "-journal");
    {
        SqliteConnection connection(partial);
        connection.execute(
            fmt::format("BEGIN; PRAGMA application_id = {}; PRAGMA user_version = {}; {} {} COMMIT",
                        kApplicationId, kFormat, kTables, kTablesBesideDocuments));
    }
    renameDurably(partial, file);
}

bool isOutdated(SqliteConnection& connection, const std::filesystem::path& file) {
    if (connection.pragma("application_id") != kApplicationId)
        throw unreadable(file, "it is the database of another program");
    const std::int64_t format = connection.pragma("user_version");
    if (format != kFormat && format != kFirstFormat)
        throw unreadable(
            file, fmt::format("its format is {}, this version reads formats up to {}", format, kFormat));
    return format != kFormat;
}

void upgrade(SqliteConnection& connection) {
    spdlog::info("upgrading the documents to format {}", kFormat);
    sqlite3_create_function(connection.handle(), "document_checksum", 4, SQLITE_UTF8 | SQLITE_DETERMINISTIC,
                            nullptr, &documentChecksumFunction, nullptr, nullptr);
    connection.execute("BEGIN IMMEDIATE");
    try {
        connection.execute(
            "ALTER TABLE indices ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;"
            "ALTER TABLE documents ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;"
            "ALTER TABLE security ADD COLUMN checksum INTEGER NOT NULL DEFAULT 0;"
            // The first format did not enforce unique identifiers: the latest row counts.
            "DELETE FROM documents WHERE row NOT IN (SELECT max(row) FROM documents GROUP BY row >> "
            "40, id);"
            "UPDATE documents SET checksum = document_checksum(row, id, version, source);");
        connection.execute(kTablesBesideDocuments);
        connection.execute(
            "INSERT INTO sequences SELECT number, coalesce((SELECT max(row) FROM documents WHERE "
            "row >= number << 40 AND row < (number + 1) << 40), number << 40) FROM indices");
        convertIndices(connection);
        convertSecurity(connection);
        connection.execute(fmt::format("PRAGMA user_version = {}; COMMIT", kFormat));
    } catch (...) {
        if (connection.inTransaction()) connection.execute("ROLLBACK");
        throw;
    }
}

} // namespace kestrel::index::schema
