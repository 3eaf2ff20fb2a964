#include "tests/support/IndexService.h"

#include "kestrelml/store/KsNNDatabase.h"

#include <Poco/Environment.h>
#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/JSON/Parser.h>
#include <Poco/URI.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <thread>
#include <utility>

namespace kestrel_test {
namespace {

Poco::JSON::Object::Ptr readJson(const std::string& path) {
    Poco::FileInputStream file(path);
    return Poco::JSON::Parser().parse(file).extract<Poco::JSON::Object::Ptr>();
}

/// Holds a lock until the process ends: CTest runs the cases of one executable side by side, and there is one
/// cluster.
void waitForOthersOfThisExecutable() {
    static const int executable = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    if (::flock(executable, LOCK_EX) != 0) throw std::runtime_error("the test cannot lock its executable");
}

void waitFor(const std::string& path, const Poco::ProcessHandle& process) {
    for (int i = 0; i < 600; ++i) {
        if (Poco::File(path).exists()) return;
        if (!Poco::Process::isRunning(process))
            throw std::runtime_error("kestrel-index ended before it served");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("kestrel-index did not serve within 30 s");
}

} // namespace

IndexService::IndexService() : mFolder(std::make_unique<Poco::TemporaryFile>()) {
    mFolder->createDirectory();
    start();
}

IndexService::IndexService(std::string uri, std::string user, std::string password)
    : mUri(std::move(uri)), mUser(std::move(user)), mPassword(std::move(password)) {
    if (mUri.back() != '/') mUri += '/'; // the library appends paths to it
}

std::unique_ptr<IndexService> IndexService::elasticsearch() {
    const std::string uri = Poco::Environment::get("KESTREL_ELASTICSEARCH_URI", "");
    if (uri.empty()) return nullptr;
    waitForOthersOfThisExecutable();
    return std::unique_ptr<IndexService>(
        new IndexService(uri, Poco::Environment::get("KESTREL_ELASTICSEARCH_USER"),
                         Poco::Environment::get("KESTREL_ELASTICSEARCH_PASSWORD")));
}

IndexService::~IndexService() {
    if (mProcess != nullptr) kill();
}

void IndexService::kill() {
    if (::kill(mProcess->id(), SIGKILL) == 0) mProcess->wait();
    mProcess.reset();
}

void IndexService::start() {
    const std::string readyFile = mFolder->path() + "/ready.json";
    if (Poco::File(readyFile).exists()) Poco::File(readyFile).remove();
    const std::string port = mUri.empty() ? "0" : std::to_string(Poco::URI(mUri).getPort());
    const std::string data = mFolder->path() + "/data";
    // Tests that crash or time out must not leave services behind.
    const std::string program =
        Poco::Environment::get("KESTREL_BUILD_BIN", KESTREL_DEFAULT_BUILD_BIN) + "/kestrel-index";
    mProcess = std::make_unique<Poco::ProcessHandle>(
        Poco::Process::launch("setpriv", {"--pdeathsig", "KILL", program, "--data", data, "--port", port,
                                          "--ready-file", readyFile}));
    waitFor(readyFile, *mProcess);
    mUri = readJson(readyFile)->getValue<std::string>("uri");
    const auto administrator = readJson(data + "/administrator.json");
    mUser = administrator->getValue<std::string>("user");
    mPassword = administrator->getValue<std::string>("password");
}

void IndexService::giveCredentialsToLibrary() const {
    giveCredentialsToLibrary(mUser, mPassword);
}

void IndexService::giveCredentialsToLibrary(const std::string& user, const std::string& password) {
    // The service must not be asked while the library holds something that is no password.
    KsNNDatabase store("https://127.0.0.1:1/", nullptr, nullptr, nullptr, false);
    const std::string key = "pass phrase of the tests";
    store.SetCredentials("none yet", "none yet", key, false, false);
    const auto encrypted = [&](const std::string& text) {
        std::stringstream plain(text);
        std::stringstream result;
        if (store.IEncryptStream(plain, result, false) != KsNN_Success)
            throw std::runtime_error(store.GetErrorStr());
        return result.str();
    };
    const std::string encryptedUser = encrypted(user);
    store.SetCredentials(encryptedUser, encrypted(password), key, false, false);
}

} // namespace kestrel_test
