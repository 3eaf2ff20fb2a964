// The exchange file's text: written and read piece by piece.

#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/exchange/ExchangeWriter.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>

#include <sstream>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;

/// Collects what a reader gives.
template <typename Read>
std::vector<std::string> collected(Read read) {
    std::vector<std::string> elements;
    read([&](const std::string& element) {
        elements.push_back(element);
        return KsNN_Success;
    });
    return elements;
}

std::vector<std::string> elementsOf(const std::string& text) {
    std::istringstream in(text);
    return collected([&](const auto& take) { readElements(in, take); });
}

std::vector<std::string> decryptedElements(const std::string& passPhrase, const std::string& file) {
    std::istringstream in(file);
    return collected([&](const auto& take) { readExchange(in, passPhrase, take); });
}

std::string encrypted(const std::string& passPhrase, const std::vector<std::string>& elements) {
    std::ostringstream file;
    ExchangeWriter writer(file, passPhrase);
    for (const std::string& element : elements)
        writer.add(element);
    writer.finish();
    return file.str();
}

TEST(ExchangeText, IsCutIntoElements) {
    EXPECT_THAT(elementsOf("[]"), ElementsAre());
    EXPECT_THAT(elementsOf(" [ 1 ,{\"a]\\\"\":[{}, \"}\"]}, \"x,y\" ]\n"),
                ElementsAre(" 1 ", "{\"a]\\\"\":[{}, \"}\"]}", " \"x,y\" "));
    for (const char* text : {"", " ", "{}", "[", "[1", "[1,]", "[,1]", "[1]2", "[\"", "[{\"a\":\"b]"})
        EXPECT_THROW(elementsOf(text), Poco::DataFormatException) << text;
    EXPECT_THROW(elementsOf(std::string(1'000'000, '[')), Poco::DataFormatException);
}

TEST(ExchangeText, EncryptedInPiecesItIsWhatItIsEncryptedWhole) {
    Poco::Crypto::Cipher::Ptr cipher = createCipher("key");
    for (const std::size_t size : {0U, 1U, 15U, 16U, 8191U, 70'000U}) {
        const std::string text = "\"" + std::string(size, 'x') + "\"";
        EXPECT_EQ(encrypted("key", {text, "{}"}), encrypt(*cipher, "[" + text + ",{}]")) << size;
        EXPECT_THAT(decryptedElements("key", encrypted("key", {text, "{}"})), ElementsAre(text, "{}"));
    }
}

TEST(ExchangeText, TruncatedAnywhereIsRefused) {
    const std::string file = encrypted("key", {"{\"hits\":{\"hits\":[]}}", std::string(500, '7')});
    for (std::size_t length = 0; length + 8 < file.size(); ++length)
        EXPECT_THROW(decryptedElements("key", file.substr(0, length)), Poco::Exception) << length;
}

} // namespace
} // namespace kestrel_test
