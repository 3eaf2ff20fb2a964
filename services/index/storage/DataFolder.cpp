#include "storage/DataFolder.h"

#include "base/AtomicFile.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kestrel::index {

namespace {

constexpr const char* kLockName = "lock";
constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

std::string systemMessage() {
    return std::generic_category().message(errno);
}

struct stat statusOf(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        throw DataFolderError(fmt::format("cannot look at {}: {}", path.string(), systemMessage()));
    return status;
}

/// Removes the permissions of others; whether they had any.
bool tighten(const std::filesystem::path& path, mode_t mode) {
    if ((mode & kOthers) == 0) return false;
    if (::chmod(path.c_str(), mode & S_IRWXU) != 0)
        throw DataFolderError(fmt::format("cannot make {} private: {}", path.string(), systemMessage()));
    return true;
}

/// Files that the service creates, and their temporary files.
bool isKnownName(std::string_view name) {
    static constexpr std::array<std::string_view, 7> kNames{
        kLockName,         "documents.db", "administrator.json", "certificate.pem",
        "private-key.pem", "derived",      "first-start"};
    return name.ends_with(".partial") || name.ends_with(".partial-journal") ||
           name.starts_with("documents.db-") || std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

} // namespace

DataFolder::DataFolder(std::filesystem::path path, Absent absent) : mPath(std::move(path)) {
    if (absent == Absent::IsRefused && !std::filesystem::exists(documents()))
        throw DataFolderError(fmt::format("{} is not a data folder: it has no documents.db", mPath.string()));
    make();
    refuseForeignFiles();
    lock();
    requireOwn();
    requireWhole();
}

DataFolder::LockFile::~LockFile() {
    if (descriptor >= 0) close(descriptor);
}

void DataFolder::make() const {
    std::error_code error;
    if (std::filesystem::create_directories(mPath, error))
        std::filesystem::permissions(mPath, std::filesystem::perms::owner_all);
    if (error || !std::filesystem::is_directory(mPath))
        throw DataFolderError(fmt::format("cannot make the data folder {}: {}", mPath.string(),
                                          error ? error.message() : "it is a file"));
}

void DataFolder::refuseForeignFiles() const {
    if (std::filesystem::exists(documents())) return;
    for (const auto& entry : std::filesystem::directory_iterator(mPath)) {
        const std::string name = entry.path().filename().string();
        if (!isKnownName(name))
            throw DataFolderError(
                fmt::format("the folder {} contains {}, which does not belong to this service; give an "
                            "empty folder or one that kestrel-index has created",
                            mPath.string(), name));
    }
}

/// A password or key that somebody else has placed here must not be used.
void DataFolder::requireOwn() const {
    const uid_t self = ::geteuid();
    if (statusOf(std::filesystem::canonical(mPath)).st_uid != self)
        throw DataFolderError(
            fmt::format("the folder {} belongs to another user; give a folder of your own", mPath.string()));
    bool loose = false;
    const bool started = std::filesystem::exists(documents());
    for (const auto& entry : std::filesystem::directory_iterator(mPath)) {
        if (!isKnownName(entry.path().filename().string())) continue;
        const struct stat status = statusOf(entry.path());
        const bool plain = S_ISREG(status.st_mode) ? status.st_nlink == 1 : S_ISDIR(status.st_mode);
        if (status.st_uid != self || !plain)
            throw DataFolderError(fmt::format(
                "{} was not created by this service: it {}; find out where it comes from and remove it",
                entry.path().string(), plain ? "belongs to another user" : "is a link or has several names"));
        // What others could write to before the first start may be theirs.
        if (!started && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
            throw DataFolderError(
                fmt::format("others may write to {}, and no service has been started here yet; remove it",
                            entry.path().string()));
    }
    for (const auto& entry : std::filesystem::directory_iterator(mPath))
        if (isKnownName(entry.path().filename().string()))
            loose |= tighten(entry.path(), statusOf(entry.path()).st_mode);
    const std::filesystem::path folder = std::filesystem::canonical(mPath);
    loose |= tighten(folder, statusOf(folder).st_mode);
    if (loose)
        spdlog::warn("others had permissions on the data folder {} or files in it; now only its owner has",
                     mPath.string());
    discardForeignSnapshots();
}

/// Snapshots are only read if nobody else can have written them.
void DataFolder::discardForeignSnapshots() const {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(derived(), none)) {
        const struct stat status = statusOf(entry.path());
        if (status.st_uid == ::geteuid() && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
            (status.st_mode & (S_IWGRP | S_IWOTH)) == 0)
            continue;
        spdlog::warn("{} may have been written by somebody else: it is removed", entry.path().string());
        std::filesystem::remove_all(entry.path());
    }
}

void DataFolder::requireWhole() const {
    const bool documentsThere =
        std::filesystem::exists(documents()) && std::filesystem::file_size(documents()) > 0;
    if (documentsThere) return;
    const std::filesystem::path journal = documents().string() + "-wal";
    const bool restThere = std::filesystem::exists(administrator()) ||
                           std::filesystem::exists(privateKey()) || std::filesystem::exists(certificate()) ||
                           std::filesystem::exists(journal);
    if (restThere && !std::filesystem::exists(firstStart()))
        throw DataFolderError(
            fmt::format("{} is {}, although the service was started here before: restore a backup, or, if "
                        "nothing was ever stored here, empty the folder; nothing was changed",
                        documents().string(), std::filesystem::exists(documents()) ? "empty" : "missing"));
    // An interrupted first start may have left an empty file. A journal of another database would be applied
    // to the new one.
    std::filesystem::remove(documents());
    std::filesystem::remove(journal);
    writeFileAtomically(firstStart(),
                        "kestrel-index was started here for the first time and is not ready yet\n");
}

void DataFolder::finishFirstStart() const {
    if (std::filesystem::remove(firstStart())) syncFolder(mPath);
}

void DataFolder::lock() {
    const std::filesystem::path file = mPath / kLockName;
    mLockFile.descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (mLockFile.descriptor < 0)
        throw DataFolderError(fmt::format("cannot open {}: {}", file.string(), systemMessage()));
    if (flock(mLockFile.descriptor, LOCK_EX | LOCK_NB) != 0)
        throw DataFolderError(fmt::format("the data folder {} is in use by another process", mPath.string()));
}

} // namespace kestrel::index
