#pragma once

#include <Poco/Process.h>
#include <Poco/TemporaryFile.h>

#include <memory>
#include <string>

namespace kestrel_test {

/// The index service under test.
///
/// Normally a kestrel-index of its own on a free port, with its data in a temporary folder. When
/// KESTREL_TEST_INDEX_URI, KESTREL_TEST_INDEX_USER and KESTREL_TEST_INDEX_PASSWORD are set, the service they
/// name is used instead, which cannot be killed.
class IndexService {
public:
    IndexService();
    ~IndexService();
    IndexService(const IndexService&) = delete;
    IndexService& operator=(const IndexService&) = delete;

    const std::string& uri() const { return mUri; }
    const std::string& user() const { return mUser; }
    const std::string& password() const { return mPassword; }

    /// Whether `kill` and `start` are possible.
    bool isOurs() const { return mFolder != nullptr; }
    /// Ends the process at once, as a power cut would.
    void kill();
    /// Starts the process again on the same data and port. It ends with the thread that calls this.
    void start();

    /// Stores user and password with the library, as a host does. Suffixes the transcript index with "_rel".
    void giveCredentialsToLibrary() const;
    static void giveCredentialsToLibrary(const std::string& user, const std::string& password);

private:
    std::unique_ptr<Poco::TemporaryFile> mFolder;
    std::unique_ptr<Poco::ProcessHandle> mProcess;
    std::string mUri;
    std::string mUser;
    std::string mPassword;
};

} // namespace kestrel_test
