#pragma once

#include "base/Json.h"
#include "engine/Index.h"
#include "storage/Sqlite.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrel::index {

struct StoredDocument {
    std::string id;
    std::int64_t version = 0;
    std::string source;
};

/// A row whose checksum is wrong. document holds what can still be read of it.
class DamagedRow : public std::runtime_error {
public:
    DamagedRow(RowId row, StoredDocument document);
    RowId row() const { return mRow; }
    const StoredDocument& document() const { return mDocument; }

private:
    RowId mRow;
    StoredDocument mDocument;
};

/// The documents on disk, from which everything else is derived. Every row has a checksum, and the database
/// enforces unique identifiers. One connection writes, used by the writer only; each concurrent reader has a
/// connection of its own.
class DocumentStore {
public:
    /// Opens the database, creates it when the file is missing, and upgrades it from an earlier format.
    /// Throws DataFolderError when the file belongs to another program or is damaged, and leaves it
    /// unchanged.
    explicit DocumentStore(const std::filesystem::path& file);
    ~DocumentStore();

    struct StoredIndex {
        IndexInfo info;
        MappingPtr mapping; ///< null when the stored one is damaged
        RowId lastRow = 0;
    };
    std::vector<StoredIndex> indices();
    /// The documents of the rows after the given one, in order. Of damaged rows, what can still be read.
    using Visit = std::function<void(RowId, StoredDocument, bool intact)>;
    void forEachDocument(const StoredIndex& index, RowId after, const Visit& visit);
    /// The index's rows up to the given one, in no particular order.
    std::vector<RowId> rowsUpTo(std::int64_t index, RowId last);
    /// Recently deleted identifiers.
    void forEachTombstone(std::int64_t index, const std::function<void(const std::string& id)>& visit);

    /// From any thread. Returns nothing when the row is gone. Throws DamagedRow.
    std::optional<StoredDocument> read(RowId row);
    /// All rows, or nothing when one of them is gone. Throws DamagedRow.
    std::optional<std::vector<StoredDocument>> read(const std::vector<RowId>& rows);

    // Writing: by the writer only, between begin and commit or rollback.
    void begin();
    void commit();
    void rollback();
    std::optional<StoredDocument> readForWrite(RowId row);
    void insert(RowId row, const std::string& id, std::int64_t version, std::string_view source);
    void remove(RowId row);
    /// Versions continue after a deletion: stores the version of a deleted document, and returns it once.
    void putTombstone(std::int64_t index, const std::string& id, std::int64_t version);
    std::optional<std::int64_t> takeTombstone(std::int64_t index, const std::string& id);
    std::int64_t insertIndex(const IndexInfo& info, const Mapping& mapping);
    void updateMapping(std::int64_t index, const Mapping& mapping);
    void updateLastRow(std::int64_t index, RowId row);
    /// Removes the index at once; purge removes its rows piece by piece.
    void removeIndex(std::int64_t index);
    /// Removes some rows of removed indices; false when nothing is left to remove.
    bool purge();
    /// Users and roles: kind is "user" or "role".
    void putSecurity(const std::string& kind, const std::string& name, const Json& body);
    void removeSecurity(const std::string& kind, const std::string& name);
    /// Damaged rows are logged and left out.
    std::vector<std::pair<std::string, Json>> security(const std::string& kind);

    /// Copies the journal into the database when it has grown. Call it between transactions. Throws
    /// SqliteError.
    void checkpointIfDue();
    SqliteConnection& writer() { return mWriter; }

private:
    struct Reader {
        explicit Reader(const std::filesystem::path& file);
        std::optional<StoredDocument> read(RowId row);
        SqliteConnection connection;
        SqliteStatement byRow;
    };
    class Lease;
    struct Statements;

    std::filesystem::path mFile;
    SqliteConnection mWriter;
    std::unique_ptr<Statements> mStatements;
    std::mutex mReadersMutex;
    std::vector<std::unique_ptr<Reader>> mIdleReaders;
};

} // namespace kestrel::index
