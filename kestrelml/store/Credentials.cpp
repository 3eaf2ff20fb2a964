#include "kestrelml/store/Credentials.h"

#include "kestrelml/core/Cipher.h"

#include <Poco/Exception.h>

#include <iostream>

using namespace kestrelml::detail;
using Poco::Crypto::Cipher;

std::string KsNNDatabase::mEncryptedUser;
std::string KsNNDatabase::mEncryptedPass;
std::string KsNNDatabase::mKey;

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

KsNN_ErrorCode fail(KsNNBase* target, const char* message, bool debug, unsigned location = __builtin_LINE()) {
    reportError(nullptr, message, location, target, debug);
    return KsNN_Error;
}

/// Runs a step of the cipher. What it throws becomes a report and 2.
template <typename Step>
KsNN_ErrorCode catchingCipher(KsNNBase* target, const char* message, bool debug, Step step) {
    try {
        return step();
    } catch (const Poco::Exception& caught) {
        reportError(&caught, nullptr, __LINE__, target, debug);
    } catch (...) {
        reportError(nullptr, message, __LINE__, target, debug);
    }
    return KsNN_Exception;
}

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
    return catchingCipher(caller, "RESTCall exception", debug, [&] {
        Poco::Crypto::Cipher::Ptr cipher = createCipher(key);
        user = decrypt(*cipher, encryptedUser);
        password = decrypt(*cipher, encryptedPass);
        if (debug) {
            std::cout << "Decrypted Username: " << user << std::endl;
            std::cout << "Decrypted Password: " << password << std::endl;
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode storeCredentials(KsNNBase& caller, BasicCredentials& credentials, bool debug) {
    auto* const store = dynamic_cast<KsNNDatabase*>(&caller);
    if (store == nullptr) return KsNN_Success;
    if (!KsNNDatabase::getKey().empty()) {
        return decryptCredentials(store, credentials.user, credentials.password, debug);
    }
    if (debug) {
        std::cout << "RESTCall: No stored encrypted credentials. Using " << credentials.user
                  << " credentials." << std::endl;
    }
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
    mKey = key;
    const std::string suffix = debugIndex ? "_dbg" : "_rel";
    if (endsWith(mTranscriptIndex, suffix)) return KsNN_Success;
    mTranscriptIndex += suffix;
    if (debug && !debugIndex) std::cout << mTranscriptIndex << std::endl;
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
    return catchingCipher(this, "Encrypt Err: ", debug, [&] {
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
    return catchingCipher(this, "Encrypt Err: ", debug, [&] {
        Cipher::Ptr cipher = createCipher(mKey);
        if (cipher.isNull()) return fail(this, "Decrypt err: Cipher object is NULL.", debug);
        const std::string decrypted = decrypt(*cipher, text);
        plain << decrypted;
        if (debug) std::cout << "Decrypted String: " << decrypted << std::endl;
        return KsNN_Success;
    });
}
