#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace kestrel::index {

/// A data folder that cannot be served; the message says why and what to do.
class DataFolderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The folder that holds everything the service keeps. Made when absent; held by one process at a time.
class DataFolder {
public:
    /// Refuses a folder that another process holds and one that holds files of somebody else.
    explicit DataFolder(std::filesystem::path path);
    ~DataFolder();
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;

    std::filesystem::path documents() const { return mPath / "documents.db"; }
    std::filesystem::path administrator() const { return mPath / "administrator.json"; }
    std::filesystem::path certificate() const { return mPath / "certificate.pem"; }
    std::filesystem::path privateKey() const { return mPath / "private-key.pem"; }

private:
    void refuseForeignFiles() const;
    void lock();

    std::filesystem::path mPath;
    int mLockFile = -1;
};

} // namespace kestrel::index
