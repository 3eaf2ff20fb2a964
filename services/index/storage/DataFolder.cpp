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

namespace kestrel {

namespace {

constexpr const char* lockName = "lock";

[[noreturn]] void throwSystemError(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

DataFolder::DataFolder(std::filesystem::path path) : path_(std::move(path)) {
    std::error_code error;
    if (std::filesystem::create_directories(path_, error))
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
    if (error || !std::filesystem::is_directory(path_))
        throw DataFolderError(fmt::format("cannot make the data folder {}: {}", path_.string(),
                                          error ? error.message() : "it is a file"));
    refuseForeignFiles();
    lock();
}

DataFolder::~DataFolder() {
    if (lockFile_ >= 0) close(lockFile_);
}

void DataFolder::refuseForeignFiles() const {
    if (std::filesystem::exists(documents())) return;
    // A first start that was cut short leaves only files of ours.
    static constexpr std::array<std::string_view, 4> ours{lockName, "administrator.json", "certificate.pem",
                                                          "private-key.pem"};
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        const std::string name = entry.path().filename().string();
        if (!name.ends_with(".partial") && std::find(ours.begin(), ours.end(), name) == ours.end())
            throw DataFolderError(
                fmt::format("the folder {} holds {}, which is not of this service; give an empty "
                            "folder or one that kestrel-index has made",
                            path_.string(), name));
    }
}

void DataFolder::lock() {
    const std::filesystem::path file = path_ / lockName;
    lockFile_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFile_ < 0)
        throw DataFolderError(
            fmt::format("cannot open {}: {}", file.string(), std::generic_category().message(errno)));
    if (flock(lockFile_, LOCK_EX | LOCK_NB) != 0)
        throw DataFolderError(fmt::format("the data folder {} is in use by another process", path_.string()));
}

void writeFileAtomically(const std::filesystem::path& file, std::string_view content, bool secret) {
    const std::filesystem::path partial = file.string() + ".partial";
    const int descriptor =
        open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, secret ? 0600 : 0644);
    if (descriptor < 0) throwSystemError("cannot write " + partial.string());
    while (!content.empty()) {
        const ssize_t written = write(descriptor, content.data(), content.size());
        if (written < 0) {
            const int error = errno;
            close(descriptor);
            errno = error;
            throwSystemError("cannot write " + partial.string());
        }
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    if (!synced) throwSystemError("cannot write " + partial.string());
    std::filesystem::rename(partial, file);
}

} // namespace kestrel
