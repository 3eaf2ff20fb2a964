#include "engine/SnapshotFile.h"

#include "base/AtomicFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kestrel::index {

namespace {

constexpr std::size_t kBuffer = 1U << 20U;

[[noreturn]] void throwSystemError(const std::filesystem::path& file) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + file.string());
}

} // namespace

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

void SnapshotWriter::finish() {
    const std::uint32_t checksum = mChecksum.value();
    if (std::fwrite(&checksum, 1, sizeof(checksum), mStream.get()) != sizeof(checksum) ||
        std::fflush(mStream.get()) != 0 || ::fsync(::fileno(mStream.get())) != 0)
        throwSystemError(partial());
    std::filesystem::rename(partial(), mFile);
    mStream.reset();
    syncFolder(mFile.parent_path());
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
        throw SnapshotError(fmt::format("{} is damaged: its checksum does not fit", mFile.string()));
}

} // namespace kestrel::index
