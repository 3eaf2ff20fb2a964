#include "storage/DataFolder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kestrel::index {

namespace {

constexpr const char* kLockName = "lock";

} // namespace

DataFolder::DataFolder(std::filesystem::path path) : mPath(std::move(path)) {
    std::error_code error;
    if (std::filesystem::create_directories(mPath, error))
        std::filesystem::permissions(mPath, std::filesystem::perms::owner_all);
    if (error || !std::filesystem::is_directory(mPath))
        throw DataFolderError(fmt::format("cannot make the data folder {}: {}", mPath.string(),
                                          error ? error.message() : "it is a file"));
    refuseForeignFiles();
    lock();
}

DataFolder::~DataFolder() {
    if (mLockFile >= 0) close(mLockFile);
}

void DataFolder::refuseForeignFiles() const {
    if (std::filesystem::exists(documents())) return;
    // A first start that was cut short leaves only files of ours.
    static constexpr std::array<std::string_view, 4> kOurs{kLockName, "administrator.json", "certificate.pem",
                                                           "private-key.pem"};
    for (const auto& entry : std::filesystem::directory_iterator(mPath)) {
        const std::string name = entry.path().filename().string();
        if (!name.ends_with(".partial") && std::find(kOurs.begin(), kOurs.end(), name) == kOurs.end())
            throw DataFolderError(
                fmt::format("the folder {} holds {}, which is not of this service; give an empty "
                            "folder or one that kestrel-index has made",
                            mPath.string(), name));
    }
}

void DataFolder::lock() {
    const std::filesystem::path file = mPath / kLockName;
    mLockFile = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (mLockFile < 0)
        throw DataFolderError(
            fmt::format("cannot open {}: {}", file.string(), std::generic_category().message(errno)));
    if (flock(mLockFile, LOCK_EX | LOCK_NB) != 0)
        throw DataFolderError(fmt::format("the data folder {} is in use by another process", mPath.string()));
}

} // namespace kestrel::index
