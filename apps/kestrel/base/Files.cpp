#include "apps/kestrel/base/Files.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

class Descriptor {
public:
    Descriptor(const fs::path& file, int flags, unsigned mode)
        : mValue(::open(file.c_str(), flags | O_CLOEXEC, mode)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (mValue >= 0) ::close(mValue);
    }
    int get() const { return mValue; }
    int release() { return std::exchange(mValue, -1); }

private:
    int mValue;
};

[[noreturn]] void failWriting(const fs::path& file) {
    throw Failure(fmt::format("cannot write {}: {}", printableName(file.string()), std::strerror(errno)));
}

bool writeAll(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<std::size_t>(written);
    }
    return true;
}

bool isSameFile(int descriptor, const fs::path& file) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::stat(file.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

} // namespace

std::string readFile(const fs::path& file, std::size_t most) {
    const auto fail = [&](const std::string& reason) {
        throw Failure(fmt::format("cannot read {}: {}", printableName(file.string()), reason));
    };
    if (fs::is_directory(file)) fail("it is a folder");
    std::ifstream in(file, std::ios::binary);
    if (!in) fail(std::strerror(errno));
    std::string text;
    std::array<char, std::size_t{64} << 10> buffer{};
    while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > most) fail(fmt::format("it has more than {} MB", most >> 20));
    }
    if (in.bad()) fail(std::strerror(errno));
    return text;
}

void replaceFile(const fs::path& file, const std::string& text, unsigned mode) {
    const fs::path temporary = fmt::format("{}.{}.tmp", file.string(), ::getpid());
    {
        const Descriptor out(temporary, O_WRONLY | O_CREAT | O_TRUNC, mode);
        if (out.get() < 0) failWriting(file);
        if (!writeAll(out.get(), text) || ::fsync(out.get()) != 0) {
            const int reason = errno;
            ::unlink(temporary.c_str());
            errno = reason;
            failWriting(file);
        }
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) failWriting(file);
}

void writeUserFile(const fs::path& file, const std::string& text) {
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (fs::is_directory(status))
        throw Failure(fmt::format("cannot write {}: it is a folder", printableName(file.string())));
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        const Descriptor out(file, O_WRONLY, 0);
        if (out.get() < 0 || !writeAll(out.get(), text)) failWriting(file);
        return;
    }
    // A link goes on pointing to the file that it names.
    const fs::path target = fs::exists(status) ? fs::canonical(file) : file;
    replaceFile(target, text, 0666);
}

FileLock::FileLock(int descriptor, fs::path file) : mDescriptor(descriptor), mFile(std::move(file)) {
}

FileLock::FileLock(FileLock&& other) noexcept
    : mDescriptor(std::exchange(other.mDescriptor, -1)), mFile(std::move(other.mFile)) {
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    std::swap(mDescriptor, other.mDescriptor);
    std::swap(mFile, other.mFile);
    return *this;
}

FileLock::~FileLock() {
    if (mDescriptor >= 0) ::close(mDescriptor);
}

std::optional<FileLock> FileLock::takeWith(const fs::path& file, int flockMode) {
    while (true) {
        Descriptor lock(file, O_RDWR | O_CREAT, 0600);
        if (lock.get() < 0) failWriting(file);
        if (::flock(lock.get(), flockMode) != 0) {
            if (errno == EWOULDBLOCK) return std::nullopt;
            if (errno != EINTR) failWriting(file);
            continue;
        }
        if (isSameFile(lock.get(), file)) return FileLock(lock.release(), file);
    }
}

FileLock FileLock::take(const fs::path& file) {
    return *takeWith(file, LOCK_EX);
}

std::optional<FileLock> FileLock::tryTake(const fs::path& file) {
    return takeWith(file, LOCK_EX | LOCK_NB);
}

std::string FileLock::note() const {
    return readFile(mFile);
}

void FileLock::setNote(const std::string& text) const {
    if (::ftruncate(mDescriptor, 0) != 0 || ::lseek(mDescriptor, 0, SEEK_SET) != 0 ||
        !writeAll(mDescriptor, text))
        failWriting(mFile);
}

void FileLock::removeFile() const {
    ::unlink(mFile.c_str());
}

} // namespace kestrel
