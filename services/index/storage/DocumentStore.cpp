#include "storage/DocumentStore.h"

#include "base/Work.h"
#include "storage/DataFolder.h"
#include "storage/Schema.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrel::index {

namespace {

constexpr const char* kSelectByRow = "SELECT row, id, version, source, checksum FROM documents WHERE row = ?";
constexpr int kCheckpointPages = 4000;  // 16 MB
constexpr int kTruncatedPages = 16'000; // when readers have prevented smaller checkpoints
constexpr auto kShortPatience = std::chrono::milliseconds(100);
constexpr std::int64_t kPurgedAtOnce = 500; // rows; few, so that other writes are not held up
constexpr std::int64_t kTombstoneSeconds = std::int64_t{24} * 60 * 60;

std::int64_t nowSeconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

RowId firstRow(std::int64_t index) {
    return index << kSequenceBits;
}

DataFolderError unreadable(const std::filesystem::path& file, const std::string& why) {
    return DataFolderError(fmt::format("{} cannot be used: {}; nothing was changed", file.string(), why));
}

/// Whether the checksum is right. The statement selects row, id, version, source and checksum.
bool isIntact(const SqliteStatement& row) {
    return row.integer(4) ==
           schema::documentChecksum(row.integer(0), row.textView(1), row.integer(2), row.textView(3));
}

std::optional<StoredDocument> readRow(SqliteStatement& byRow, RowId row) {
    if (!byRow.bind(row).step()) {
        byRow.reset();
        return std::nullopt;
    }
    const bool intact = isIntact(byRow);
    StoredDocument document{byRow.text(1), byRow.integer(2), byRow.text(3)};
    byRow.reset();
    if (!intact) throw DamagedRow(row, std::move(document));
    return document;
}

int rememberPages(void* pages, sqlite3*, const char*, int inJournal) {
    *static_cast<int*>(pages) = inJournal;
    return SQLITE_OK;
}

} // namespace

DamagedRow::DamagedRow(RowId row, StoredDocument document)
    : std::runtime_error(
          fmt::format("document [{}] (row {}) is damaged: its checksum is wrong", document.id, row)),
      mRow(row), mDocument(std::move(document)) {
}

class DocumentStore::Lease {
public:
    explicit Lease(DocumentStore& store) : mStore(store) {
        const std::lock_guard lock(store.mReadersMutex);
        if (!store.mIdleReaders.empty()) {
            mReader = std::move(store.mIdleReaders.back());
            store.mIdleReaders.pop_back();
        }
    }
    ~Lease() {
        // A connection that an error left inside a transaction would keep reading an old state.
        if (!mReader || mReader->connection.inTransaction()) return;
        const std::lock_guard lock(mStore.mReadersMutex);
        mStore.mIdleReaders.push_back(std::move(mReader));
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    Reader& operator*() {
        if (!mReader) mReader = std::make_unique<Reader>(mStore.mFile);
        return *mReader;
    }

private:
    DocumentStore& mStore;
    std::unique_ptr<Reader> mReader;
};

DocumentStore::Reader::Reader(const std::filesystem::path& file)
    : connection(file), byRow(connection, kSelectByRow) {
}

std::optional<StoredDocument> DocumentStore::Reader::read(RowId row) {
    return readRow(byRow, row);
}

/// The writer's prepared statements.
struct DocumentStore::Statements {
    explicit Statements(SqliteConnection& connection)
        : byRow(connection, kSelectByRow),
          insert(connection,
                 "INSERT INTO documents (row, id, version, source, checksum) VALUES (?, ?, ?, ?, ?)"),
          remove(connection, "DELETE FROM documents WHERE row = ?"),
          lastRow(connection, "INSERT OR REPLACE INTO sequences (number, last) VALUES (?, ?)"),
          putTombstone(
              connection,
              "INSERT OR REPLACE INTO tombstones (number, id, version, deleted) VALUES (?, ?, ?, ?)"),
          tombstone(connection, "SELECT version FROM tombstones WHERE number = ? AND id = ?"),
          dropTombstone(connection, "DELETE FROM tombstones WHERE number = ? AND id = ?") {}

    SqliteStatement byRow, insert, remove, lastRow, putTombstone, tombstone, dropTombstone;
    int journalPages = 0;
    int truncateFrom = kTruncatedPages;
};

namespace {

const std::filesystem::path& made(const std::filesystem::path& file) {
    if (!std::filesystem::exists(file))
        schema::create(file);
    else if (std::filesystem::file_size(file) == 0)
        throw unreadable(file, "it is empty, which no database of this service is");
    return file;
}

} // namespace

DocumentStore::DocumentStore(const std::filesystem::path& file) try : mFile(file), mWriter(made(file)) {
    const bool outdated = schema::isOutdated(mWriter, file);
    mWriter.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
    mWriter.execute(fmt::format("PRAGMA journal_size_limit = {}", std::int64_t{kCheckpointPages} * 4096));
    if (outdated) schema::upgrade(mWriter);
    mStatements = std::make_unique<Statements>(mWriter);
    // The writer makes checkpoints itself, so that it learns of their failures.
    sqlite3_wal_hook(mWriter.handle(), &rememberPages, &mStatements->journalPages);
} catch (const SqliteError& e) {
    throw unreadable(file, e.what());
}

DocumentStore::~DocumentStore() {
    sqlite3_wal_hook(mWriter.handle(), nullptr, nullptr);
}

std::vector<DocumentStore::StoredIndex> DocumentStore::indices() {
    std::vector<StoredIndex> found;
    SqliteStatement statement(
        mWriter,
        "SELECT number, name, uuid, created, settings, mappings, checksum FROM indices ORDER BY number");
    SqliteStatement sequence(mWriter, "SELECT last FROM sequences WHERE number = ?");
    SqliteStatement newest(mWriter, "SELECT max(row) FROM documents WHERE row >= ? AND row < ?");
    while (statement.step()) {
        StoredIndex index{{statement.integer(0), statement.text(1), statement.text(2), statement.integer(3),
                           Json::object()},
                          nullptr,
                          0};
        const bool intact =
            statement.integer(6) == schema::indexChecksum(statement.textView(1), statement.textView(2),
                                                          statement.integer(3), statement.textView(4),
                                                          statement.textView(5));
        try {
            if (!intact) throw std::runtime_error("its checksum is wrong");
            index.info.settings = Json::parse(statement.textView(4));
            index.mapping =
                std::make_shared<const Mapping>(Mapping::fromStored(Json::parse(statement.textView(5))));
        } catch (const std::exception& e) {
            spdlog::critical("the description of index [{}] is damaged ({}): it is set aside",
                             index.info.name, e.what());
        }
        const std::int64_t number = index.info.number;
        sequence.bind(number).step();
        newest.bind(firstRow(number)).bind(firstRow(number + 1)).step();
        index.lastRow = std::max({firstRow(number), sequence.integer(0), newest.integer(0)});
        sequence.reset();
        newest.reset();
        found.push_back(std::move(index));
    }
    return found;
}

void DocumentStore::forEachDocument(const StoredIndex& index, RowId after, const Visit& visit) {
    SqliteStatement statement(
        mWriter, "SELECT row, id, version, source, checksum FROM documents WHERE row > ? AND row <= ? "
                 "ORDER BY row");
    statement.bind(std::max(after, firstRow(index.info.number) - 1)).bind(index.lastRow);
    while (statement.step())
        visit(statement.integer(0), {statement.text(1), statement.integer(2), statement.text(3)},
              isIntact(statement));
}

std::vector<RowId> DocumentStore::rowsUpTo(std::int64_t index, RowId last) {
    std::vector<RowId> rows;
    SqliteStatement statement(
        mWriter, "SELECT row FROM documents INDEXED BY documents_by_id WHERE row >> 40 = ? AND row <= ?");
    statement.bind(index).bind(last);
    while (statement.step())
        rows.push_back(statement.integer(0));
    return rows;
}

void DocumentStore::forEachTombstone(std::int64_t index,
                                     const std::function<void(const std::string&)>& visit) {
    SqliteStatement statement(mWriter, "SELECT id FROM tombstones WHERE number = ?");
    statement.bind(index);
    while (statement.step())
        visit(statement.text(0));
}

std::optional<StoredDocument> DocumentStore::read(RowId row) {
    Lease lease(*this);
    return (*lease).read(row);
}

std::optional<std::vector<StoredDocument>> DocumentStore::read(const std::vector<RowId>& rows) {
    Lease lease(*this);
    Reader& reader = *lease;
    std::vector<StoredDocument> documents;
    documents.reserve(rows.size());
    // One transaction for all rows takes the lock only once.
    reader.connection.execute("BEGIN");
    for (const RowId row : rows) {
        auto document = reader.read(row);
        if (!document) break;
        takeMemory(document->source.size());
        documents.push_back(std::move(*document));
    }
    reader.connection.execute("COMMIT");
    if (documents.size() != rows.size()) return std::nullopt;
    return documents;
}

void DocumentStore::begin() {
    mWriter.execute("BEGIN IMMEDIATE");
}

void DocumentStore::commit() {
    mWriter.execute("COMMIT");
}

void DocumentStore::rollback() {
    if (mWriter.inTransaction()) mWriter.execute("ROLLBACK");
}

std::optional<StoredDocument> DocumentStore::readForWrite(RowId row) {
    return readRow(mStatements->byRow, row);
}

void DocumentStore::insert(RowId row, const std::string& id, std::int64_t version, std::string_view source) {
    const std::int64_t checksum = schema::documentChecksum(row, id, version, source);
    mStatements->insert.bind(row).bind(id).bind(version).bind(source).bind(checksum).run();
}

void DocumentStore::remove(RowId row) {
    mStatements->remove.bind(row).run();
}

void DocumentStore::putTombstone(std::int64_t index, const std::string& id, std::int64_t version) {
    mStatements->putTombstone.bind(index).bind(id).bind(version).bind(nowSeconds()).run();
}

std::optional<std::int64_t> DocumentStore::takeTombstone(std::int64_t index, const std::string& id) {
    std::optional<std::int64_t> version;
    if (mStatements->tombstone.bind(index).bind(id).step()) version = mStatements->tombstone.integer(0);
    mStatements->tombstone.reset();
    if (version) mStatements->dropTombstone.bind(index).bind(id).run();
    return version;
}

std::int64_t DocumentStore::insertIndex(const IndexInfo& info, const Mapping& mapping) {
    const std::string settings = info.settings.dump();
    const std::string mapped = mapping.toStored().dump();
    SqliteStatement statement(
        mWriter,
        "INSERT INTO indices (name, uuid, created, settings, mappings, checksum) VALUES (?, ?, ?, ?, ?, ?)");
    statement.bind(info.name)
        .bind(info.uuid)
        .bind(info.createdMs)
        .bind(settings)
        .bind(mapped)
        .bind(schema::indexChecksum(info.name, info.uuid, info.createdMs, settings, mapped))
        .run();
    const std::int64_t number = sqlite3_last_insert_rowid(mWriter.handle());
    updateLastRow(number, firstRow(number));
    return number;
}

void DocumentStore::updateMapping(std::int64_t index, const Mapping& mapping) {
    SqliteStatement read(mWriter, "SELECT name, uuid, created, settings FROM indices WHERE number = ?");
    if (!read.bind(index).step()) return;
    const std::string mapped = mapping.toStored().dump();
    const std::int64_t checksum =
        schema::indexChecksum(read.textView(0), read.textView(1), read.integer(2), read.textView(3), mapped);
    read.reset();
    SqliteStatement statement(mWriter, "UPDATE indices SET mappings = ?, checksum = ? WHERE number = ?");
    statement.bind(mapped).bind(checksum).bind(index).run();
}

void DocumentStore::updateLastRow(std::int64_t index, RowId row) {
    mStatements->lastRow.bind(index).bind(row).run();
}

void DocumentStore::removeIndex(std::int64_t index) {
    mWriter.execute(fmt::format("DELETE FROM indices WHERE number = {0};"
                                "DELETE FROM sequences WHERE number = {0};"
                                "INSERT INTO removed_indices (number) VALUES ({0})",
                                index));
}

bool DocumentStore::purge() {
    SqliteStatement next(mWriter, "SELECT number FROM removed_indices LIMIT 1");
    if (!next.step()) {
        SqliteStatement expired(mWriter, "DELETE FROM tombstones WHERE deleted < ?");
        expired.bind(nowSeconds() - kTombstoneSeconds).run();
        return false;
    }
    const std::int64_t index = next.integer(0);
    next.reset();
    for (const char* piece :
         {"DELETE FROM documents WHERE row IN (SELECT row FROM documents WHERE row >= ?1 << 40 AND row "
          "< (?1 + 1) << 40 LIMIT ?2)",
          "DELETE FROM tombstones WHERE number = ?1 AND id IN (SELECT id FROM tombstones WHERE number "
          "= ?1 LIMIT ?2)"}) {
        SqliteStatement statement(mWriter, piece);
        statement.bind(index).bind(kPurgedAtOnce).run();
        if (sqlite3_changes(mWriter.handle()) > 0) return true;
    }
    SqliteStatement done(mWriter, "DELETE FROM removed_indices WHERE number = ?");
    done.bind(index).run();
    return true;
}

void DocumentStore::putSecurity(const std::string& kind, const std::string& name, const Json& body) {
    const std::string text = body.dump();
    SqliteStatement statement(
        mWriter, "INSERT OR REPLACE INTO security (kind, name, body, checksum) VALUES (?, ?, ?, ?)");
    statement.bind(kind).bind(name).bind(text).bind(schema::securityChecksum(kind, name, text)).run();
}

void DocumentStore::removeSecurity(const std::string& kind, const std::string& name) {
    SqliteStatement statement(mWriter, "DELETE FROM security WHERE kind = ? AND name = ?");
    statement.bind(kind).bind(name).run();
}

std::vector<std::pair<std::string, Json>> DocumentStore::security(const std::string& kind) {
    std::vector<std::pair<std::string, Json>> found;
    SqliteStatement statement(mWriter,
                              "SELECT name, body, checksum FROM security WHERE kind = ? ORDER BY name");
    statement.bind(kind);
    while (statement.step()) {
        Json body = Json::parse(statement.textView(1), nullptr, false);
        const bool intact = statement.integer(2) ==
                            schema::securityChecksum(kind, statement.textView(0), statement.textView(1));
        if (intact && body.is_object())
            found.emplace_back(statement.text(0), std::move(body));
        else
            spdlog::critical("the {} [{}] is damaged: it is set aside", kind, statement.text(0));
    }
    return found;
}

void DocumentStore::checkpointIfDue() {
    int& pages = mStatements->journalPages;
    if (pages < kCheckpointPages) return;
    const bool truncate = pages >= mStatements->truncateFrom;
    // A long read, such as a backup, must not hold up the writer.
    sqlite3_busy_timeout(mWriter.handle(), static_cast<int>(kShortPatience.count()));
    const int code = sqlite3_wal_checkpoint_v2(
        mWriter.handle(), nullptr, truncate ? SQLITE_CHECKPOINT_TRUNCATE : SQLITE_CHECKPOINT_PASSIVE, nullptr,
        nullptr);
    const SqliteError error(sqlite3_extended_errcode(mWriter.handle()), sqlite3_errmsg(mWriter.handle()));
    sqlite3_busy_timeout(mWriter.handle(), static_cast<int>(kBusyPatience.count()));
    if (truncate) mStatements->truncateFrom = code == SQLITE_OK ? kTruncatedPages : 2 * pages;
    if (code != SQLITE_OK && (code & 0xFF) != SQLITE_BUSY) throw error;
}

} // namespace kestrel::index
