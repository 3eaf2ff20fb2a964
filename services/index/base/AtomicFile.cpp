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

} // namespace

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

} // namespace kestrel::index
