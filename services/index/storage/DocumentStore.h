#pragma once

#include "base/Json.h"
#include "engine/Index.h"
#include "storage/Sqlite.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kestrel::index {

struct StoredDocument {
    std::string id;
    std::int64_t version = 0;
    std::string source;
};

/// The documents on disk: the only truth there is. One writing connection, used by the writer alone, and as
/// many reading connections as there are readers at once.
class DocumentStore {
public:
    /// Opens or makes the database. Throws DataFolderError when the file is not ours or is damaged.
    explicit DocumentStore(const std::filesystem::path& file);

    struct StoredIndex {
        IndexInfo info;
        Json mappings;
        RowId lastRow;
    };
    std::vector<StoredIndex> indices();
    void forEachDocument(const StoredIndex& index, const std::function<void(RowId, StoredDocument)>& visit);

    /// Reading, from any thread. Rows that are gone give nothing.
    std::optional<StoredDocument> read(RowId row);
    /// All rows, or nothing when one of them is gone.
    std::optional<std::vector<StoredDocument>> read(const std::vector<RowId>& rows);

    /// Writing: only between begin and commit or rollback, by the writer.
    void begin();
    void commit();
    void rollback();
    std::optional<StoredDocument> readForWrite(RowId row);
    void insert(RowId row, const std::string& id, std::int64_t version, std::string_view source);
    void remove(RowId row);
    std::int64_t insertIndex(const IndexInfo& info, const Json& mappings);
    void updateMappings(std::int64_t index, const Json& mappings);
    void removeIndex(std::int64_t index);
    /// Users and roles: kind is "user" or "role".
    void putSecurity(const std::string& kind, const std::string& name, const Json& body);
    void removeSecurity(const std::string& kind, const std::string& name);
    std::vector<std::pair<std::string, Json>> security(const std::string& kind);
    SqliteConnection& writer() { return mWriter; }

private:
    struct Reader {
        explicit Reader(const std::filesystem::path& file);
        std::optional<StoredDocument> read(RowId row);
        SqliteConnection connection;
        SqliteStatement byRow;
    };
    class Lease;

    void create();
    void check();

    std::filesystem::path mFile;
    SqliteConnection mWriter;
    std::optional<SqliteStatement> mByRow, mInsert, mRemove;
    std::mutex mReadersMutex;
    std::vector<std::unique_ptr<Reader>> mIdleReaders;
};

} // namespace kestrel::index
