#pragma once

#include <cstddef>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>

namespace kestrel {

/// @param most Number of bytes that the file may have: a device may have no end.
/// @throws Failure naming the file.
std::string readFile(const std::filesystem::path& file,
                     std::size_t most = std::numeric_limits<std::size_t>::max());

/// Replaces the file as a whole: a reader sees the old text or the new one, and so does the next start after
/// a crash.
/// @throws Failure naming the file and the reason, such as "No space left on device".
void replaceFile(const std::filesystem::path& file, const std::string& text, unsigned mode);

/// Writes a file that the user named. A plain file is replaced as a whole: a reader finds the old text or the
/// new one. Devices and pipes are written to directly.
/// @throws Failure naming the file and the reason.
void writeUserFile(const std::filesystem::path& file, const std::string& text);

/// Advisory lock between processes on a file of its own; released with the object, or by the system on a
/// crash.
class FileLock {
public:
    static FileLock take(const std::filesystem::path& file);
    static std::optional<FileLock> tryTake(const std::filesystem::path& file);
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();

    /// The text that holders of the lock leave in the file for the next one.
    std::string note() const;
    void setNote(const std::string& text) const;
    /// Removes the file; `take` never returns a lock on a file that was removed.
    void removeFile() const;

private:
    FileLock(int descriptor, std::filesystem::path file);
    static std::optional<FileLock> takeWith(const std::filesystem::path& file, int flockMode);

    int mDescriptor;
    std::filesystem::path mFile;
};

} // namespace kestrel
