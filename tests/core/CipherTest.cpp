#include "kestrelml/core/Cipher.h"

#include <Poco/Crypto/CipherFactory.h>
#include <Poco/Crypto/CipherKey.h>
#include <gtest/gtest.h>

namespace {

using Poco::Crypto::Cipher;

TEST(Cipher, IsTheOneThatPocoMakesFromThePassPhrase) {
    for (const std::string& phrase :
         {std::string("k"), std::string("pass phrase"), std::string(300, '\xe9')}) {
        const Poco::Crypto::CipherKey key("aes-256-cbc", phrase, "p4tz7rm1q06vhe93", 2000, "md5");
        Cipher::Ptr reference = Poco::Crypto::CipherFactory::defaultFactory().createCipher(key);
        Cipher::Ptr ours = kestrelml::detail::createCipher(phrase);
        const std::string encrypted = kestrelml::detail::encrypt(*ours, "kestrel_admin");
        EXPECT_EQ(encrypted, reference->encryptString("kestrel_admin", Cipher::ENC_BASE64));
        EXPECT_EQ(kestrelml::detail::decrypt(*ours, encrypted), "kestrel_admin");
    }
}

} // namespace
