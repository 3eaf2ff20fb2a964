#include "base/AtomicFile.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace kestrel::index {

namespace {

[[noreturn]] void throwSystemError(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
public:
    Descriptor(const std::filesystem::path& file, int flags, const char* purpose)
        : mNumber(::open(file.c_str(), flags | O_CLOEXEC, 0600)) {
        if (mNumber < 0) throwSystemError(purpose + file.string());
    }
    ~Descriptor() { ::close(mNumber); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return mNumber; }

private:
    int mNumber;
};

} // namespace

void writeFileAtomically(const std::filesystem::path& file, std::string_view content) {
    const std::filesystem::path partial = file.string() + ".partial";
    // A leftover would keep its owner and permissions, so it is not reused.
    if (::unlink(partial.c_str()) != 0 && errno != ENOENT)
        throwSystemError("cannot replace " + partial.string());
    {
        const Descriptor descriptor(partial, O_WRONLY | O_CREAT | O_EXCL, "cannot write ");
        while (!content.empty()) {
            const ssize_t written = ::write(descriptor.number(), content.data(), content.size());
            if (written < 0) throwSystemError("cannot write " + partial.string());
            content.remove_prefix(static_cast<std::size_t>(written));
        }
        if (::fsync(descriptor.number()) != 0) throwSystemError("cannot write " + partial.string());
    }
    renameDurably(partial, file);
}

void renameDurably(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::rename(from, to);
    syncFolder(to.has_parent_path() ? to.parent_path() : ".");
}

void syncFolder(const std::filesystem::path& folder) {
    const Descriptor descriptor(folder, O_RDONLY | O_DIRECTORY, "cannot open ");
    if (::fsync(descriptor.number()) != 0) throwSystemError("cannot synchronise " + folder.string());
}

} // namespace kestrel::index
