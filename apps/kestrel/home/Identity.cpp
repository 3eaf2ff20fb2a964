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

std::string clipIdentifier(const std::filesystem::path& file, const Callbacks& callbacks) {
    if (std::filesystem::is_directory(file)) throw Failure("it is a folder; name the media files in it");
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in) throw Failure(fmt::format("cannot be read: {}", std::strerror(errno)));
    Poco::Crypto::DigestEngine digest("SHA256");
    std::vector<char> buffer(std::size_t{1} << 20);
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
        callbacks.throwIfCancelled();
        digest.update(buffer.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) throw Failure(fmt::format("cannot be read to its end: {}", std::strerror(errno)));
    return Poco::DigestEngine::digestToHex(digest.digest());
}

std::string projectIdentifier(const std::string& name) {
    Poco::SHA1Engine digest;
    return Poco::UUIDGenerator::defaultGenerator()
        .createFromName(Poco::UUID::uri(), "kestrel:project:" + name, digest,
                        Poco::UUID::UUID_NAME_BASED_SHA1)
        .toString();
}

} // namespace kestrel
