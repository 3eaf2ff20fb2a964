#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace kestrel {

/// @throws Failure naming the file.
std::string readFile(const std::filesystem::path& file);

/// Replaces the file as a whole: a reader sees the old text or the new one, and so does the next start after
/// a crash.
/// @throws Failure naming the file and the reason, "No space left on device" for one.
void replaceFile(const std::filesystem::path& file, const std::string& text, unsigned mode);

/// Writes a file that the user named, as a whole when it is a plain file: whoever looks at it later finds the
/// old text or the new one. Devices and pipes are written to as they stand.
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

    /// The text that the lock's holders leave in the file for whoever comes after them.
    std::string note() const;
    void setNote(const std::string& text) const;
    /// Removes the file. Taking a lock sees to it that nobody is left with the removed one.
    void removeFile() const;

private:
    FileLock(int descriptor, std::filesystem::path file);
    static std::optional<FileLock> takeWith(const std::filesystem::path& file, int flockMode);

    int mDescriptor;
    std::filesystem::path mFile;
};

} // namespace kestrel
