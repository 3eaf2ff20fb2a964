#include "storage/DocumentStore.h"

#include "base/Work.h"
#include "storage/DataFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::int64_t kApplicationId = 0x4B534E58; // "KSNX"
constexpr std::int64_t kFormatVersion = 1;

std::optional<StoredDocument> readRow(SqliteStatement& byRow, RowId row) {
    std::optional<StoredDocument> document;
    if (byRow.bind(row).step()) document = {byRow.text(0), byRow.integer(1), byRow.text(2)};
    byRow.reset();
    return document;
}

constexpr const char* kSelectByRow = "SELECT id, version, source FROM documents WHERE row = ?";

DataFolderError unreadable(const std::filesystem::path& file, const std::string& why) {
    return DataFolderError(fmt::format("{} cannot be used: {}; nothing was changed", file.string(), why));
}

} // namespace

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
        // A reader that an error left inside a transaction would hold on to an old state.
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

DocumentStore::DocumentStore(const std::filesystem::path& file) try : mFile(file), mWriter(file) {
    const bool empty = mWriter.pragma("page_count") == 0;
    if (!empty) check();
    mWriter.execute("PRAGMA journal_mode = WAL");
    mWriter.execute("PRAGMA synchronous = FULL");
    mWriter.execute("PRAGMA wal_autocheckpoint = 4000");
    if (empty) create();
    mByRow.emplace(mWriter, kSelectByRow);
    mInsert.emplace(mWriter, "INSERT INTO documents (row, id, version, source) VALUES (?, ?, ?, ?)");
    mRemove.emplace(mWriter, "DELETE FROM documents WHERE row = ?");
} catch (const SqliteError& e) {
    throw unreadable(file, e.what());
}

void DocumentStore::create() {
    mWriter.execute(
        fmt::format("BEGIN;"
                    "PRAGMA application_id = {};"
                    "PRAGMA user_version = {};"
                    "CREATE TABLE indices (number INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL "
                    "UNIQUE, uuid TEXT NOT NULL, created INTEGER NOT NULL, settings TEXT NOT NULL, "
                    "mappings TEXT NOT NULL);"
                    "CREATE TABLE documents (row INTEGER PRIMARY KEY, id TEXT NOT NULL, version INTEGER "
                    "NOT NULL, source TEXT NOT NULL);"
                    "CREATE TABLE security (kind TEXT NOT NULL, name TEXT NOT NULL, body TEXT NOT NULL, "
                    "PRIMARY KEY (kind, name));"
                    "COMMIT",
                    kApplicationId, kFormatVersion));
}

void DocumentStore::check() {
    if (mWriter.pragma("application_id") != kApplicationId)
        throw unreadable(mFile, "it is a database of another program");
    const std::int64_t version = mWriter.pragma("user_version");
    if (version != kFormatVersion)
        throw unreadable(mFile,
                         fmt::format("its format is {}, this program reads {}", version, kFormatVersion));
}

std::vector<DocumentStore::StoredIndex> DocumentStore::indices() {
    std::vector<StoredIndex> found;
    SqliteStatement statement(
        mWriter, "SELECT number, name, uuid, created, settings, mappings FROM indices ORDER BY number");
    SqliteStatement last(mWriter, "SELECT max(row) FROM documents WHERE row >= ? AND row < ?");
    while (statement.step()) {
        IndexInfo info{statement.integer(0), statement.text(1), statement.text(2), statement.integer(3),
                       Json::parse(statement.text(4))};
        const RowId first = info.number << kSequenceBits;
        last.bind(first).bind((info.number + 1) << kSequenceBits).step();
        const RowId lastRow = std::max(first, last.integer(0));
        last.reset();
        found.push_back({std::move(info), Json::parse(statement.text(5)), lastRow});
    }
    return found;
}

void DocumentStore::forEachDocument(const StoredIndex& index,
                                    const std::function<void(RowId, StoredDocument)>& visit) {
    SqliteStatement statement(
        mWriter, "SELECT row, id, version, source FROM documents WHERE row >= ? AND row <= ? ORDER BY row");
    statement.bind(index.info.number << kSequenceBits).bind(index.lastRow);
    while (statement.step())
        visit(statement.integer(0), {statement.text(1), statement.integer(2), statement.text(3)});
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
    // One transaction for all rows saves taking the lock for each.
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
    return readRow(*mByRow, row);
}

void DocumentStore::insert(RowId row, const std::string& id, std::int64_t version, std::string_view source) {
    mInsert->bind(row).bind(id).bind(version).bind(source).run();
}

void DocumentStore::remove(RowId row) {
    mRemove->bind(row).run();
}

std::int64_t DocumentStore::insertIndex(const IndexInfo& info, const Json& mappings) {
    const std::string settings = info.settings.dump();
    const std::string mapped = mappings.dump();
    SqliteStatement statement(
        mWriter, "INSERT INTO indices (name, uuid, created, settings, mappings) VALUES (?, ?, ?, ?, ?)");
    statement.bind(info.name).bind(info.uuid).bind(info.createdMs).bind(settings).bind(mapped).run();
    return sqlite3_last_insert_rowid(mWriter.handle());
}

void DocumentStore::updateMappings(std::int64_t index, const Json& mappings) {
    const std::string mapped = mappings.dump();
    SqliteStatement statement(mWriter, "UPDATE indices SET mappings = ? WHERE number = ?");
    statement.bind(mapped).bind(index).run();
}

void DocumentStore::removeIndex(std::int64_t index) {
    SqliteStatement documents(mWriter, "DELETE FROM documents WHERE row >= ? AND row < ?");
    documents.bind(index << kSequenceBits).bind((index + 1) << kSequenceBits).run();
    SqliteStatement statement(mWriter, "DELETE FROM indices WHERE number = ?");
    statement.bind(index).run();
}

void DocumentStore::putSecurity(const std::string& kind, const std::string& name, const Json& body) {
    const std::string text = body.dump();
    SqliteStatement statement(mWriter, "INSERT OR REPLACE INTO security (kind, name, body) VALUES (?, ?, ?)");
    statement.bind(kind).bind(name).bind(text).run();
}

void DocumentStore::removeSecurity(const std::string& kind, const std::string& name) {
    SqliteStatement statement(mWriter, "DELETE FROM security WHERE kind = ? AND name = ?");
    statement.bind(kind).bind(name).run();
}

std::vector<std::pair<std::string, Json>> DocumentStore::security(const std::string& kind) {
    std::vector<std::pair<std::string, Json>> found;
    SqliteStatement statement(mWriter, "SELECT name, body FROM security WHERE kind = ? ORDER BY name");
    statement.bind(kind);
    while (statement.step())
        found.emplace_back(statement.text(0), Json::parse(statement.text(1)));
    return found;
}

} // namespace kestrel::index
