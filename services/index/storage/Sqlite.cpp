#include "storage/Sqlite.h"

namespace kestrel::index {

bool SqliteError::noSpace() const {
    // Exceeding a quota or the file size limit is reported as an I/O error.
    return (mCode & 0xFF) == SQLITE_FULL || mCode == SQLITE_IOERR_WRITE || mCode == SQLITE_IOERR_TRUNCATE ||
           mCode == SQLITE_IOERR_SHMSIZE;
}

bool SqliteError::syncFailed() const {
    return mCode == SQLITE_IOERR_FSYNC || mCode == SQLITE_IOERR_DIR_FSYNC;
}

SqliteStatement::SqliteStatement(SqliteConnection& connection, std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection.handle(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK)
        throw SqliteError(sqlite3_extended_errcode(connection.handle()), sqlite3_errmsg(connection.handle()));
    mStatement.reset(statement);
}

SqliteStatement& SqliteStatement::bind(std::int64_t value) {
    check(sqlite3_bind_int64(mStatement.get(), ++mBound, value));
    return *this;
}

SqliteStatement& SqliteStatement::bind(std::string_view text) {
    check(sqlite3_bind_text64(mStatement.get(), ++mBound, text.data(), text.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
    return *this;
}

bool SqliteStatement::step() {
    const int code = sqlite3_step(mStatement.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    sqlite3* const handle = sqlite3_db_handle(mStatement.get());
    const SqliteError error(sqlite3_extended_errcode(handle), sqlite3_errmsg(handle));
    reset();
    throw error;
}

void SqliteStatement::run() {
    step();
    reset();
}

void SqliteStatement::reset() {
    sqlite3_reset(mStatement.get());
    sqlite3_clear_bindings(mStatement.get());
    mBound = 0;
}

std::string SqliteStatement::text(int column) const {
    return std::string(textView(column));
}

std::string_view SqliteStatement::textView(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(mStatement.get(), column));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(mStatement.get(), column))};
}

void SqliteStatement::check(int code) const {
    if (code != SQLITE_OK) throw SqliteError(code, sqlite3_errmsg(sqlite3_db_handle(mStatement.get())));
}

SqliteConnection::SqliteConnection(const std::filesystem::path& file, Access access) {
    sqlite3* handle = nullptr;
    // Each connection is used by one thread at a time, so SQLite need not lock it.
    const int mode =
        access == Access::ReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const int code =
        sqlite3_open_v2(file.c_str(), &handle, mode | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    mHandle.reset(handle);
    if (code != SQLITE_OK)
        throw SqliteError(code, handle == nullptr ? "out of memory" : sqlite3_errmsg(handle));
    sqlite3_busy_timeout(handle, static_cast<int>(kBusyPatience.count()));
}

void SqliteConnection::execute(const std::string& sql) {
    if (sqlite3_exec(mHandle.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw SqliteError(sqlite3_extended_errcode(mHandle.get()), sqlite3_errmsg(mHandle.get()));
}

std::int64_t SqliteConnection::pragma(const std::string& name) {
    SqliteStatement statement(*this, "PRAGMA " + name);
    return statement.step() ? statement.integer(0) : 0;
}

} // namespace kestrel::index
