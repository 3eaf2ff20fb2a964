#include "tools/Backup.h"

#include "base/AtomicFile.h"
#include "storage/DataFolder.h"
#include "storage/Schema.h"

#include <fmt/format.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace kestrel::index {

namespace {

constexpr int kPagesAtOnce = 2000;
constexpr const char* kDocuments = "documents.db";
constexpr const char* kKeys[] = {"administrator.json", "certificate.pem", "private-key.pem"};

void makeEmptyFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw DataFolderError(fmt::format("cannot create {}: {}", folder.string(), error.message()));
    if (!std::filesystem::is_empty(folder))
        throw DataFolderError(fmt::format("{} is not empty; give a new folder", folder.string()));
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::stringstream content;
    content << stream.rdbuf();
    if (!stream) throw DataFolderError(fmt::format("cannot read {}", file.string()));
    return content.str();
}

/// Copies one state of the database while the service may write to it.
void copyDocuments(const std::filesystem::path& from, const std::filesystem::path& to,
                   const Progress& progress) {
    SqliteConnection source(from, SqliteConnection::Access::ReadOnly);
    schema::isOutdated(source, from);
    // A read transaction keeps the copy at one state, whatever is written meanwhile.
    source.execute("BEGIN");
    source.pragma("schema_version");
    {
        SqliteConnection target(to);
        struct Finish {
            void operator()(sqlite3_backup* copy) const { sqlite3_backup_finish(copy); }
        };
        const std::unique_ptr<sqlite3_backup, Finish> copy(
            sqlite3_backup_init(target.handle(), "main", source.handle(), "main"));
        if (!copy)
            throw SqliteError(sqlite3_extended_errcode(target.handle()), sqlite3_errmsg(target.handle()));
        int code = SQLITE_OK;
        while ((code = sqlite3_backup_step(copy.get(), kPagesAtOnce)) == SQLITE_OK) {
            const auto all = static_cast<std::size_t>(sqlite3_backup_pagecount(copy.get()));
            progress(all - static_cast<std::size_t>(sqlite3_backup_remaining(copy.get())), all);
        }
        if (code != SQLITE_DONE) throw SqliteError(code, sqlite3_errstr(code));
    }
}

void copyFolder(const std::filesystem::path& from, const std::filesystem::path& to,
                const Progress& progress) {
    const std::filesystem::path partial = to / fmt::format("{}.partial", kDocuments);
    copyDocuments(from / kDocuments, partial, progress);
    for (const char* key : kKeys)
        if (std::filesystem::exists(from / key)) writeFileAtomically(to / key, contentOf(from / key));
    renameDurably(partial, to / kDocuments);
}

} // namespace

void backUp(const std::filesystem::path& data, const std::filesystem::path& target,
            const Progress& progress) {
    if (!std::filesystem::exists(data / kDocuments))
        throw DataFolderError(
            fmt::format("{} is not a data folder: it has no {}", data.string(), kDocuments));
    makeEmptyFolder(target);
    copyFolder(data, target, progress);
}

void restore(const std::filesystem::path& backup, const std::filesystem::path& data,
             const Progress& progress) {
    const CheckReport report = check(backup / kDocuments, {}, progress);
    if (report.findings > 0)
        throw DataFolderError(
            fmt::format("the backup {} is damaged: {}", backup.string(), report.damage.front()));
    makeEmptyFolder(data);
    copyFolder(backup, data, progress);
}

} // namespace kestrel::index
