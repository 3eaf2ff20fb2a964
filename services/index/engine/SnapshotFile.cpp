#include "engine/SnapshotFile.h"

#include "base/AtomicFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::size_t kBuffer = 1U << 20U;

[[noreturn]] void throwSystemError(const std::filesystem::path& file) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + file.string());
}

std::filesystem::path companionOf(const std::filesystem::path& snapshot, const std::string& name) {
    return snapshot.parent_path() / fmt::format("{}.{}", snapshot.stem().string(), name);
}

} // namespace

CompanionFile::CompanionFile(std::filesystem::path file, Access access) : mFile(std::move(file)) {
    const bool writing = access == Access::Write;
    mDescriptor =
        ::open(mFile.c_str(), writing ? O_WRONLY | O_CREAT | O_CLOEXEC : O_RDONLY | O_CLOEXEC, 0600);
    if (mDescriptor >= 0) return;
    if (writing) throwSystemError(mFile);
    throw SnapshotError(fmt::format("{} cannot be read", mFile.string()));
}

CompanionFile::~CompanionFile() {
    if (mDescriptor >= 0) ::close(mDescriptor);
}

CompanionFile::CompanionFile(CompanionFile&& other) noexcept
    : mFile(std::move(other.mFile)), mDescriptor(std::exchange(other.mDescriptor, -1)) {
}

void CompanionFile::write(std::size_t place, const void* data, std::size_t size) {
    for (const char* bytes = static_cast<const char*>(data); size > 0;) {
        const ssize_t written = ::pwrite(mDescriptor, bytes, size, static_cast<off_t>(place));
        if (written < 0) throwSystemError(mFile);
        bytes += written;
        place += static_cast<std::size_t>(written);
        size -= static_cast<std::size_t>(written);
    }
}

bool CompanionFile::read(std::size_t place, void* data, std::size_t size) const {
    for (char* bytes = static_cast<char*>(data); size > 0;) {
        const ssize_t got = ::pread(mDescriptor, bytes, size, static_cast<off_t>(place));
        if (got <= 0) return false;
        bytes += got;
        place += static_cast<std::size_t>(got);
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

void CompanionFile::sync() {
    if (::fsync(mDescriptor) != 0) throwSystemError(mFile);
}

SnapshotWriter::SnapshotWriter(std::filesystem::path file) : mFile(std::move(file)) {
    mStream.reset(std::fopen(partial().c_str(), "wbe"));
    if (!mStream) throwSystemError(partial());
    std::setvbuf(mStream.get(), nullptr, _IOFBF, kBuffer);
}

SnapshotWriter::~SnapshotWriter() {
    if (!mStream) return;
    mStream.reset();
    std::error_code ignored;
    std::filesystem::remove(partial(), ignored);
}

void SnapshotWriter::bytes(const void* data, std::size_t size) {
    if (size == 0) return;
    mChecksum.addBytes(data, size);
    if (std::fwrite(data, 1, size, mStream.get()) != size) throwSystemError(partial());
}

void SnapshotWriter::text(std::string_view text) {
    number<std::uint64_t>(text.size());
    bytes(text.data(), text.size());
}

void SnapshotWriter::bitmap(const Roaring& bitmap) {
    std::vector<char> serialized(bitmap.getSizeInBytes());
    bitmap.write(serialized.data());
    column(serialized);
}

CompanionFile& SnapshotWriter::companion(const std::string& name) {
    const std::filesystem::path file = companionOf(mFile, name);
    const auto known = mCompanions.find(file);
    if (known != mCompanions.end()) return known->second;
    return mCompanions.emplace(file, CompanionFile(file, CompanionFile::Access::Write)).first->second;
}

void SnapshotWriter::finish() {
    for (auto& [path, file] : mCompanions)
        file.sync();
    const std::uint32_t checksum = mChecksum.value();
    if (std::fwrite(&checksum, 1, sizeof(checksum), mStream.get()) != sizeof(checksum) ||
        std::fflush(mStream.get()) != 0 || ::fsync(::fileno(mStream.get())) != 0)
        throwSystemError(partial());
    renameDurably(partial(), mFile);
    mStream.reset();
    for (const auto& entry : std::filesystem::directory_iterator(mFile.parent_path())) {
        const std::filesystem::path& other = entry.path();
        if (other.stem() == mFile.stem() && other != mFile && !mCompanions.contains(other))
            std::filesystem::remove(other);
    }
}

SnapshotReader::SnapshotReader(const std::filesystem::path& file) : mFile(file) {
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(file, error);
    mStream.reset(std::fopen(file.c_str(), "rbe"));
    if (error || !mStream || size < sizeof(std::uint32_t))
        throw SnapshotError(fmt::format("{} cannot be read", file.string()));
    std::setvbuf(mStream.get(), nullptr, _IOFBF, kBuffer);
    mLeft = size - sizeof(std::uint32_t);
}

void SnapshotReader::bytes(void* data, std::size_t size) {
    if (size == 0) return;
    if (size > mLeft || std::fread(data, 1, size, mStream.get()) != size)
        throw SnapshotError(fmt::format("{} ends too early", mFile.string()));
    mLeft -= size;
    mChecksum.addBytes(data, size);
}

std::size_t SnapshotReader::size(std::size_t bytesEach) {
    const auto count = number<std::uint64_t>();
    if (count > mLeft / bytesEach) throw SnapshotError(fmt::format("{} is damaged", mFile.string()));
    return count;
}

std::string SnapshotReader::text() {
    std::string text(size(1), '\0');
    bytes(text.data(), text.size());
    return text;
}

CompanionFile SnapshotReader::companion(const std::string& name) const {
    return {companionOf(mFile, name), CompanionFile::Access::Read};
}

Roaring SnapshotReader::bitmap() {
    std::vector<char> serialized;
    column(serialized);
    try {
        return Roaring::readSafe(serialized.data(), serialized.size());
    } catch (const std::runtime_error&) {
        throw SnapshotError(fmt::format("{} is damaged", mFile.string()));
    }
}

void SnapshotReader::finish() {
    const std::uint32_t expected = mChecksum.value();
    std::uint32_t stored = 0;
    if (mLeft != 0 || std::fread(&stored, 1, sizeof(stored), mStream.get()) != sizeof(stored) ||
        stored != expected)
        throw SnapshotError(fmt::format("{} is damaged: its checksum is wrong", mFile.string()));
}

} // namespace kestrel::index
