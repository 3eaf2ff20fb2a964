#include "kestrelml/store/Credentials.h"

#include "kestrelml/core/RESTCall.h"
#include "tests/store/NewProcess.h"
#include "tests/store/ScriptedStore.h"

#include <iostream>

namespace kestrel_test {
namespace {

using testing::HasSubstr;

TEST(Credentials, SuffixTheTranscriptIndexOnce) {
    expectInNewProcess(
        [] {
            KsNNDatabase store(kNobody, "clips", nullptr, nullptr, false);
            const auto set = [&](const char* key, bool debugIndex) {
                std::cerr << store.SetCredentials("u", "p", key, false, debugIndex) << ' '
                          << KsNNDatabase::getTranscriptIndex() << '\n';
            };
            set("", false);
            set("k", false);
            set("", true);
            set("l", false);
            set("l", true);
            std::cerr << KsNNDatabase::getEncryptedUser() + KsNNDatabase::getEncryptedPass() +
                             KsNNDatabase::getKey();
        },
        "1 clips\n0 clips_rel\n1 clips_rel\n0 clips_rel\n0 clips_rel_dbg\nupl");
}

class Cipher : public ScriptedStore {
protected:
    std::string encrypted(const std::string& text) {
        std::stringstream plain(text);
        std::stringstream result;
        EXPECT_EQ(mStore->IEncryptStream(plain, result, false), KsNN_Success) << mStore->GetErrorStr();
        return result.str();
    }
    KsNN_ErrorCode decrypt(const std::string& text, std::string& plain) {
        std::stringstream in(text);
        std::stringstream out;
        const KsNN_ErrorCode code = mStore->IDecryptStream(in, out, false);
        plain = out.str();
        return code;
    }
    void useKey(const std::string& key) { mStore->SetCredentials("u", "p", key, false, false); }
};

TEST_F(Cipher, NeedsAKey) {
    expectInNewProcess(
        [] {
            KsNNDatabase store(kNobody, nullptr, nullptr, nullptr, false);
            std::stringstream in("x");
            std::stringstream out;
            std::cerr << store.IEncryptStream(in, out, false) << store.IDecryptStream(in, out, false)
                      << out.str();
            std::string user;
            std::cerr << kestrelml::detail::decryptCredentials(&store, user, user, false)
                      << store.GetErrorStr();
        },
        "111KsNN Error: [0-9]+, Decrypt err: Encrypted credentials and key not set.");
}

TEST_F(Cipher, AgreesWithOpenSslsOwnTool) {
    useKey("test key");
    // From: openssl enc -aes-256-cbc -base64, with key and vector derived by 2000 rounds of MD5.
    std::string plain;
    EXPECT_EQ(decrypt("LBnbOOkSO0akpGVPJOLTzw==", plain), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(plain, "kestrel_admin");
}

TEST_F(Cipher, WrongKeyDamageAndNothing) {
    useKey("key one");
    const std::string secret = encrypted("secret");
    std::string plain;
    for (const std::string& damaged : {std::string("!!!"), secret.substr(0, 8), "AAAA" + secret}) {
        EXPECT_EQ(decrypt(damaged, plain), KsNN_Exception) << damaged;
        EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("\tclassName = "));
        EXPECT_EQ(plain, "");
    }
    useKey("key two");
    EXPECT_EQ(decrypt(secret, plain), KsNN_Exception);
    EXPECT_EQ(decrypt("", plain), KsNN_Success);
    EXPECT_EQ(plain, "");
    EXPECT_THAT(mStore->GetErrorStr(),
                HasSubstr("Decrypt warning: Early return, encrypted string is empty."));
}

TEST_F(Cipher, StoresSendTheirCredentialsAndOthersTheDebugUser) {
    useKey("key");
    const std::string user = encrypted("me");
    mStore->SetCredentials(user, encrypted("secret"), "key", false, false);
    mServer.script({missing(), missing()});
    bool exists = true;
    EXPECT_EQ(mStore->CheckIndex(exists, "i", false), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(mServer.requests().at(0).headers.at("Authorization"), "Basic bWU6c2VjcmV0");
    EXPECT_THAT(mStore->GetLastRESTCall(), HasSubstr("-u transcript_user_dbg:Wq3ZbN8yPc2Lx6 "));

    KsNNBase other(mServer.uri().c_str());
    Poco::JSON::Object::Ptr answer;
    unsigned status = 0;
    RESTCall("GET", "i", 10, nullptr, answer, status, &other, true, true, false);
    EXPECT_THAT(mServer.requests().at(1).headers.at("Authorization"), HasSubstr("dHJhbnNjcmlwdF91c2Vy"));
}

TEST_F(Cipher, CredentialsThatDoNotDecryptSendNothing) {
    mStore->SetLastRESTCall("earlier");
    mStore->SetCredentials("not base 64", "nor this", "key", false, false);
    EXPECT_EQ(mStore->testDefault(false), KsNN_Exception);
    EXPECT_EQ(mStore->GetLastRESTCall(), "earlier");
    EXPECT_TRUE(mServer.requests().empty());
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("\tclassName = "));
}

} // namespace
} // namespace kestrel_test
