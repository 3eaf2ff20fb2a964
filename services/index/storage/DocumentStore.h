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

/// A row whose content is not what was written. What can still be read of it is in document.
class DamagedRow : public std::runtime_error {
public:
    DamagedRow(RowId row, StoredDocument document);
    RowId row() const { return mRow; }
    const StoredDocument& document() const { return mDocument; }

private:
    RowId mRow;
    StoredDocument mDocument;
};

/// The documents on disk: the only truth there is. Every row carries a checksum, and the database itself
/// keeps identifiers unique. One writing connection, used by the writer alone, and as many reading
/// connections as there are readers at once.
class DocumentStore {
public:
    /// Opens the database, makes it when the file is absent, and brings one of an earlier format up to date.
    /// Throws DataFolderError when the file is not of this service or is damaged; it is left as it was then.
    explicit DocumentStore(const std::filesystem::path& file);
    ~DocumentStore();

    struct StoredIndex {
        IndexInfo info;
        MappingPtr mapping; ///< null when the stored one is damaged
        RowId lastRow = 0;
    };
    std::vector<StoredIndex> indices();
    /// The documents of the rows after the given one, in order. Damaged rows come with false, and with what
    /// can still be read of them.
    using Visit = std::function<void(RowId, StoredDocument, bool intact)>;
    void forEachDocument(const StoredIndex& index, RowId after, const Visit& visit);
    /// The index's rows up to the given one, in no order.
    std::vector<RowId> rowsUpTo(std::int64_t index, RowId last);
    /// Identifiers that were deleted lately.
    void forEachTombstone(std::int64_t index, const std::function<void(const std::string& id)>& visit);

    /// Reading, from any thread. Rows that are gone give nothing. Throws DamagedRow.
    std::optional<StoredDocument> read(RowId row);
    /// All rows, or nothing when one of them is gone. Throws DamagedRow.
    std::optional<std::vector<StoredDocument>> read(const std::vector<RowId>& rows);

    /// Writing: only between begin and commit or rollback, by the writer.
    void begin();
    void commit();
    void rollback();
    std::optional<StoredDocument> readForWrite(RowId row);
    void insert(RowId row, const std::string& id, std::int64_t version, std::string_view source);
    void remove(RowId row);
    /// Versions go on after a deletion: remembers that of a deleted document, and gives it back once.
    void putTombstone(std::int64_t index, const std::string& id, std::int64_t version);
    std::optional<std::int64_t> takeTombstone(std::int64_t index, const std::string& id);
    std::int64_t insertIndex(const IndexInfo& info, const Mapping& mapping);
    void updateMapping(std::int64_t index, const Mapping& mapping);
    void updateLastRow(std::int64_t index, RowId row);
    /// The index is gone at once; its rows are removed piece by piece by purge.
    void removeIndex(std::int64_t index);
    /// Removes some rows of removed indices; false when nothing is left to remove.
    bool purge();
    /// Users and roles: kind is "user" or "role".
    void putSecurity(const std::string& kind, const std::string& name, const Json& body);
    void removeSecurity(const std::string& kind, const std::string& name);
    /// Damaged rows are reported in the log and left out.
    std::vector<std::pair<std::string, Json>> security(const std::string& kind);

    /// Brings the journal into the database when it has grown; between transactions. Throws SqliteError.
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
