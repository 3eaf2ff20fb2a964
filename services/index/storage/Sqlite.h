#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kestrel::index {

/// How long a connection waits for locks.
constexpr std::chrono::milliseconds kBusyPatience{10'000};

class SqliteError : public std::runtime_error {
public:
    SqliteError(int code, const std::string& message) : std::runtime_error(message), mCode(code) {}
    int code() const { return mCode; }
    /// The disk is full, as opposed to broken.
    bool noSpace() const;
    bool corrupt() const { return (mCode & 0xFF) == SQLITE_CORRUPT || (mCode & 0xFF) == SQLITE_NOTADB; }
    /// It is unknown whether what was written is on the disk.
    bool syncFailed() const;

private:
    int mCode;
};

class SqliteConnection;

/// A prepared statement. Parameters are bound in order; text must live until the next step or reset.
class SqliteStatement {
public:
    SqliteStatement(SqliteConnection& connection, std::string_view sql);

    SqliteStatement& bind(std::int64_t value);
    SqliteStatement& bind(std::string_view text);
    /// Whether there is a row to be read.
    bool step();
    /// Steps once and resets the statement for other parameters.
    void run();
    void reset();

    std::int64_t integer(int column) const { return sqlite3_column_int64(mStatement.get(), column); }
    std::string text(int column) const;
    /// Valid until the next step or reset.
    std::string_view textView(int column) const;

private:
    void check(int code) const;

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> mStatement;
    int mBound = 0;
};

class SqliteConnection {
public:
    enum class Access { ReadWrite, ReadOnly };

    explicit SqliteConnection(const std::filesystem::path& file, Access access = Access::ReadWrite);

    void execute(const std::string& sql);
    std::int64_t pragma(const std::string& name);
    sqlite3* handle() const { return mHandle.get(); }
    /// Whether a transaction is open; an error may have ended it.
    bool inTransaction() const { return sqlite3_get_autocommit(mHandle.get()) == 0; }

private:
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> mHandle;
};

} // namespace kestrel::index
