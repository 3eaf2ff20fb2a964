#include "apps/kestrel/home/Identity.h"

#include "apps/kestrel/base/Failure.h"

#include <Poco/Crypto/DigestEngine.h>
#include <Poco/SHA1Engine.h>
#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

namespace kestrel {

namespace {

/// Nothing but a plain file can be read more than once and to an end.
void requirePlainFile(const std::filesystem::path& file) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status))
        throw Failure(fmt::format("cannot be read: {}", std::strerror(error ? error.value() : ENOENT)));
    if (std::filesystem::is_directory(status)) throw Failure("is a folder that cannot be read");
    if (!std::filesystem::is_regular_file(status))
        throw Failure("is a pipe, socket or device: save it as a file first");
}

} // namespace

std::string clipIdentifier(const std::filesystem::path& file, const Callbacks& callbacks) {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    constexpr std::uintmax_t kLarge = std::uintmax_t{512} << 20; // takes seconds: progress is shown
    requirePlainFile(file);
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Failure(fmt::format("cannot be read: {}", std::strerror(errno)));
    const std::uintmax_t size = std::filesystem::file_size(file);
    Poco::Crypto::DigestEngine digest("SHA256");
    std::vector<char> buffer(kPiece);
    std::uintmax_t done = 0;
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
        callbacks.throwIfCancelled();
        const auto count = static_cast<std::size_t>(in.gcount());
        digest.update(buffer.data(), count);
        done += count;
        if (size >= kLarge)
            callbacks.report("identifying", static_cast<double>(done) / static_cast<double>(size));
    }
    if (in.bad()) throw Failure(fmt::format("cannot be read to its end: {}", std::strerror(errno)));
    return Poco::DigestEngine::digestToHex(digest.digest());
}

std::string shortIdentifier(const std::string& clip) {
    constexpr std::size_t kShown = 12;
    return clip.substr(0, kShown);
}

std::string projectIdentifier(const std::string& name) {
    Poco::SHA1Engine digest;
    return Poco::UUIDGenerator::defaultGenerator()
        .createFromName(Poco::UUID::uri(), "kestrel:project:" + name, digest,
                        Poco::UUID::UUID_NAME_BASED_SHA1)
        .toString();
}

} // namespace kestrel
