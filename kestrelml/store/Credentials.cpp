#include "kestrelml/store/Credentials.h"

#include "kestrelml/core/Cipher.h"
#include "kestrelml/core/Debug.h"
#include "kestrelml/core/Report.h"

using namespace kestrelml::detail;
using Poco::Crypto::Cipher;

std::string KsNNDatabase::mEncryptedUser;
std::string KsNNDatabase::mEncryptedPass;
std::string KsNNDatabase::mKey;

namespace {

constexpr OnException kCipherFailed{"Encrypt Err: ", KsNN_Exception};

} // namespace

namespace kestrelml::detail {

KsNN_ErrorCode decryptCredentials(KsNNDatabase* caller, std::string& user, std::string& password,
                                  bool debug) {
    const std::string encryptedUser = KsNNDatabase::getEncryptedUser();
    const std::string encryptedPass = KsNNDatabase::getEncryptedPass();
    const std::string key = KsNNDatabase::getKey();
    if (encryptedUser.empty() || encryptedPass.empty() || key.empty()) {
        return fail(caller, "Decrypt err: Encrypted credentials and key not set.", debug);
    }
    return guarded({"RESTCall exception", KsNN_Exception}, caller, debug, [&] {
        Poco::Crypto::Cipher::Ptr cipher = createCipher(key);
        user = decrypt(*cipher, encryptedUser);
        password = decrypt(*cipher, encryptedPass);
        debugLine(debug, "Decrypted Username: ", user);
        debugLine(debug, "Decrypted Password: ", password);
        return KsNN_Success;
    });
}

KsNN_ErrorCode storeCredentials(KsNNBase& caller, BasicCredentials& credentials, bool debug) {
    auto* const store = dynamic_cast<KsNNDatabase*>(&caller);
    if (store == nullptr) return KsNN_Success;
    if (!KsNNDatabase::getKey().empty()) {
        return decryptCredentials(store, credentials.user, credentials.password, debug);
    }
    debugLine(debug, "RESTCall: No stored encrypted credentials. Using ", credentials.user, " credentials.");
    return KsNN_Success;
}

} // namespace kestrelml::detail

KsNN_ErrorCode KsNNDatabase::SetCredentials(const std::string& encryptedUser,
                                            const std::string& encryptedPass, const std::string& key,
                                            bool debug, bool debugIndex) {
    if (encryptedUser.empty() || encryptedPass.empty() || key.empty()) {
        return fail(this, "KsNNDatabase::SetCredentials err: Invalid credentials given", debug);
    }
    mEncryptedUser = encryptedUser;
    mEncryptedPass = encryptedPass;
    if (key != mKey) forgetDerivedKey();
    mKey = key;
    const std::string suffix = debugIndex ? "_dbg" : "_rel";
    if (mTranscriptIndex.ends_with(suffix)) return KsNN_Success;
    mTranscriptIndex += suffix;
    debugLine(debug && !debugIndex, mTranscriptIndex);
    return KsNN_Success;
}

std::string KsNNDatabase::getEncryptedUser() {
    return mEncryptedUser;
}

std::string KsNNDatabase::getEncryptedPass() {
    return mEncryptedPass;
}

std::string KsNNDatabase::getKey() {
    return mKey;
}

KsNN_ErrorCode KsNNDatabase::IEncryptStream(std::stringstream& plain, std::stringstream& encrypted,
                                            bool debug) {
    if (mKey.empty()) return fail(this, "Decrypt err: Encrypted key not set.", debug);
    return guarded(kCipherFailed, this, debug, [&] {
        Cipher::Ptr cipher = createCipher(mKey);
        if (cipher.isNull()) return fail(this, "Encrypt err: Cipher object is NULL.", debug);
        encrypted << encrypt(*cipher, plain.str());
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::IDecryptStream(std::stringstream& encrypted, std::stringstream& plain,
                                            bool debug) {
    if (mKey.empty()) return fail(this, "Decrypt err: Encrypted key not set.", debug);
    const std::string text = encrypted.str();
    if (text.empty()) {
        fail(this, "Decrypt warning: Early return, encrypted string is empty.", debug);
        return KsNN_Success;
    }
    return guarded(kCipherFailed, this, debug, [&] {
        Cipher::Ptr cipher = createCipher(mKey);
        if (cipher.isNull()) return fail(this, "Decrypt err: Cipher object is NULL.", debug);
        const std::string decrypted = decrypt(*cipher, text);
        plain << decrypted;
        debugLine(debug, "Decrypted String: ", decrypted);
        return KsNN_Success;
    });
}
