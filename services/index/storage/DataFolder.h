#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kestrel::index {

/// The data folder cannot be used; the message says why and what to do.
class DataFolderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The folder that holds everything the service keeps, accessible to its owner only and locked by one process
/// at a time.
class DataFolder {
public:
    enum class Absent { IsMade, IsRefused };

    /// Throws DataFolderError when another process uses the folder, when it contains files of somebody else,
    /// or when the documents are missing although its keys exist. Permissions of others are removed, with a
    /// message.
    explicit DataFolder(std::filesystem::path path, Absent absent = Absent::IsMade);
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;
    ~DataFolder() = default;

    std::filesystem::path documents() const { return mPath / "documents.db"; }
    std::filesystem::path administrator() const { return mPath / "administrator.json"; }
    std::filesystem::path certificate() const { return mPath / "certificate.pem"; }
    std::filesystem::path privateKey() const { return mPath / "private-key.pem"; }
    /// What is derived from the documents; may be removed while the service is stopped.
    std::filesystem::path derived() const { return mPath / "derived"; }

    /// The first start is complete: from now on missing documents are damage.
    void finishFirstStart() const;

private:
    /// Closing the file releases the lock, also when the constructor throws.
    struct LockFile {
        int descriptor = -1;
        ~LockFile();
    };

    std::filesystem::path firstStart() const { return mPath / "first-start"; }
    void make() const;
    void refuseForeignFiles() const;
    void requireOwn() const;
    void discardForeignSnapshots() const;
    void requireWhole() const;
    void lock();

    std::filesystem::path mPath;
    LockFile mLockFile;
};

} // namespace kestrel::index
