#pragma once

#include "base/Checksum.h"

#include <roaring/roaring.hh>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kestrel::index {

/// The snapshot cannot be used; its content has to be rebuilt.
class SnapshotError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file beside a snapshot, such as one of vectors.
class CompanionFile {
public:
    enum class Access { Read, Write };
    /// Throws SnapshotError, or std::system_error when it is to be written.
    CompanionFile(std::filesystem::path file, Access access);
    ~CompanionFile();
    CompanionFile(CompanionFile&& other) noexcept;
    CompanionFile& operator=(CompanionFile&&) = delete;

    void write(std::size_t place, const void* data, std::size_t size);
    /// False when the file is too short. From any thread.
    bool read(std::size_t place, void* data, std::size_t size) const;
    void sync();
    std::uint64_t size() const { return std::filesystem::file_size(mFile); }

private:
    std::filesystem::path mFile;
    int mDescriptor = -1;
};

/// Writes values in the byte order of the machine, followed by a checksum. The file gets its name in finish.
class SnapshotWriter {
public:
    explicit SnapshotWriter(std::filesystem::path file);
    ~SnapshotWriter();
    SnapshotWriter(const SnapshotWriter&) = delete;
    SnapshotWriter& operator=(const SnapshotWriter&) = delete;

    template <typename T>
    void number(T value) {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes(&value, sizeof(value));
    }
    template <typename T>
    void column(const std::vector<T>& values) {
        static_assert(std::is_trivially_copyable_v<T>);
        number<std::uint64_t>(values.size());
        bytes(values.data(), values.size() * sizeof(T));
    }
    void text(std::string_view text);
    void bitmap(const Roaring& bitmap);
    /// A file that belongs to the snapshot, and possibly to earlier ones.
    CompanionFile& companion(const std::string& name);
    /// Synchronises the files, gives the snapshot its name, and removes companions that it does not use.
    void finish();

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    void bytes(const void* data, std::size_t size);
    std::filesystem::path partial() const { return mFile.string() + ".partial"; }

    std::filesystem::path mFile;
    std::unique_ptr<std::FILE, Close> mStream;
    std::map<std::filesystem::path, CompanionFile> mCompanions;
    Checksum mChecksum;
};

/// Reads what a SnapshotWriter wrote. finish compares the checksum; until then sizes are only trusted up to
/// the size of the file.
class SnapshotReader {
public:
    explicit SnapshotReader(const std::filesystem::path& file);

    template <typename T>
    T number() {
        static_assert(std::is_trivially_copyable_v<T>);
        T value{};
        bytes(&value, sizeof(value));
        return value;
    }
    template <typename T>
    void column(std::vector<T>& values) {
        static_assert(std::is_trivially_copyable_v<T>);
        values.resize(size(sizeof(T)));
        bytes(values.data(), values.size() * sizeof(T));
    }
    std::string text();
    Roaring bitmap();
    CompanionFile companion(const std::string& name) const;
    /// Reads the number of elements of at least so many bytes each.
    std::size_t size(std::size_t bytesEach);
    void finish();

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    void bytes(void* data, std::size_t size);

    std::filesystem::path mFile;
    std::unique_ptr<std::FILE, Close> mStream;
    std::uint64_t mLeft = 0; ///< bytes before the checksum
    Checksum mChecksum;
};

} // namespace kestrel::index
