#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kestrel {

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

    std::filesystem::path documents() const { return path_ / "documents.db"; }
    std::filesystem::path administrator() const { return path_ / "administrator.json"; }
    std::filesystem::path certificate() const { return path_ / "certificate.pem"; }
    std::filesystem::path privateKey() const { return path_ / "private-key.pem"; }

private:
    void refuseForeignFiles() const;
    void lock();

    std::filesystem::path path_;
    int lockFile_ = -1;
};

/// Writes the file whole or not at all, readable by its owner alone when secret.
void writeFileAtomically(const std::filesystem::path& file, std::string_view content, bool secret);

} // namespace kestrel
