#pragma once

#include <Poco/Process.h>
#include <Poco/TemporaryFile.h>

#include <memory>
#include <string>

namespace kestrel_test {

/// An index service for a test.
class IndexService {
public:
    /// Starts a kestrel-index on a free port, with its data in a temporary folder.
    IndexService();
    /// The Elasticsearch that KESTREL_ELASTICSEARCH_URI names, with KESTREL_ELASTICSEARCH_USER and
    /// KESTREL_ELASTICSEARCH_PASSWORD; null when there is none. `kill` and `start` are not for it.
    static std::unique_ptr<IndexService> elasticsearch();
    ~IndexService();
    IndexService(const IndexService&) = delete;
    IndexService& operator=(const IndexService&) = delete;

    const std::string& uri() const { return mUri; }
    const std::string& user() const { return mUser; }
    const std::string& password() const { return mPassword; }

    /// Ends the process at once, as a power cut would.
    void kill();
    /// Starts the process again on the same data and port. It ends with the thread that calls this.
    void start();

    /// Stores user and password with the library, as a host does. Suffixes the transcript index with "_rel".
    void giveCredentialsToLibrary() const;
    static void giveCredentialsToLibrary(const std::string& user, const std::string& password);

private:
    IndexService(std::string uri, std::string user, std::string password);

    std::unique_ptr<Poco::TemporaryFile> mFolder;
    std::unique_ptr<Poco::ProcessHandle> mProcess;
    std::string mUri;
    std::string mUser;
    std::string mPassword;
};

} // namespace kestrel_test
