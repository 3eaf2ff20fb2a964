#include "apps/kestrel/home/Credentials.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <Poco/Exception.h>
#include <Poco/RandomStream.h>
#include <fmt/format.h>

#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr std::size_t kKeyBytes = 32;

/// A store that can encrypt but reaches no service: an unparsable address fails before anything is sent, so
/// that no request goes out with anything but the right password.
KsNNDatabase offlineStore() {
    return KsNNDatabase("https://[", nullptr, nullptr, nullptr, false);
}

std::string newKey() {
    Poco::RandomInputStream random;
    std::string bytes(kKeyBytes, '\0');
    random.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::string key;
    for (const char byte : bytes)
        key += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return key;
}

std::string encrypted(KsNNDatabase& store, const std::string& plain) {
    std::stringstream in(plain);
    std::stringstream out;
    if (store.IEncryptStream(in, out, false) != KsNN_Success)
        throw Failure("cannot encrypt the index service's password: " + store.GetErrorStr());
    return out.str();
}

/// Empty when the text is damaged.
std::string decrypted(KsNNDatabase& store, const std::string& text) {
    std::stringstream in(text);
    std::stringstream plain;
    return store.IDecryptStream(in, plain, false) == KsNN_Success ? plain.str() : "";
}

bool isReadable(KsNNDatabase& store, const std::string& text) {
    return !decrypted(store, text).empty();
}

} // namespace

bool hasCredentials(const Home& home) {
    return fs::exists(home.credentialsFile()) && fs::exists(home.keyFile());
}

void adoptCredentials(const Home& home) {
    const fs::path source = home.indexData() / "administrator.json";
    if (!fs::exists(source))
        throw Failure(fmt::format("the index service left no password in {}", source.string()));
    try {
        auto administrator = readJson(source);
        const std::string key = newKey();
        KsNNDatabase store = offlineStore();
        // Encrypting needs a key, and a key is only taken together with credentials.
        store.SetCredentials("-", "-", key, false, false);
        auto credentials = jsonObject();
        credentials->set("user", encrypted(store, administrator->getValue<std::string>("user")));
        credentials->set("password", encrypted(store, administrator->getValue<std::string>("password")));
        replaceFile(home.keyFile(), key, 0600);
        replaceFile(home.credentialsFile(), toText(credentials), 0600);
    } catch (const Poco::Exception& error) {
        throw Failure(fmt::format("{} is damaged: {}", source.string(), error.displayText()));
    }
}

void applyCredentials(const Home& home) {
    if (!hasCredentials(home))
        throw Failure("there is no password for the index service yet: run `kestrel up`");
    auto credentials = readJson(home.credentialsFile());
    const std::string user = credentials->optValue<std::string>("user", "");
    const std::string password = credentials->optValue<std::string>("password", "");
    KsNNDatabase store = offlineStore();
    if (store.SetCredentials(user, password, readFile(home.keyFile()), false, false) != KsNN_Success ||
        !isReadable(store, user) || !isReadable(store, password))
        throw Failure(
            fmt::format("{} is damaged: run `kestrel up` to make it again", home.credentialsFile().string()));
}

void applyCredentialsUnder(const Home& home, const std::string& passPhrase) {
    auto credentials = readJson(home.credentialsFile());
    KsNNDatabase store = offlineStore();
    const std::string user = decrypted(store, credentials->optValue<std::string>("user", ""));
    const std::string password = decrypted(store, credentials->optValue<std::string>("password", ""));
    store.SetCredentials("-", "-", passPhrase, false, false);
    const std::string encryptedUser = encrypted(store, user);
    store.SetCredentials(encryptedUser, encrypted(store, password), passPhrase, false, false);
}

} // namespace kestrel
