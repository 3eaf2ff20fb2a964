// The exchange file's text: written and read piece by piece.

#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/exchange/ExchangeWriter.h"
#include "kestrelml/exchange/WholeFile.h"

#include <Poco/Exception.h>
#include <Poco/TemporaryFile.h>
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> elementsOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> elements;
    readElements(in, [&](const std::string& element) {
        elements.push_back(element);
        return KsNN_Success;
    });
    return elements;
}

std::string encrypted(const std::string& passPhrase, const std::vector<std::string>& elements) {
    std::ostringstream file;
    ExchangeWriter writer(file, passPhrase);
    for (const std::string& element : elements)
        writer.add(element);
    writer.finish();
    return file.str();
}

std::vector<std::string> decryptedElements(const std::string& passPhrase, const std::string& file) {
    std::istringstream in(file);
    std::vector<std::string> elements;
    readExchange(in, passPhrase, [&](const std::string& element) {
        elements.push_back(element);
        return KsNN_Success;
    });
    return elements;
}

std::string failureOf(const std::string& passPhrase, const std::string& file) {
    try {
        decryptedElements(passPhrase, file);
        return "none";
    } catch (const Poco::Exception& caught) {
        return caught.message();
    }
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

TEST(ExchangeText, SaysWhatIsWrongWithAFile) {
    const std::string file = encrypted("key", {"{\"hits\":{\"hits\":[]}}", std::string(500, '7')});
    EXPECT_EQ(failureOf("key", file), "none");
    EXPECT_THAT(failureOf("key", ""), HasSubstr("is empty"));
    EXPECT_THAT(failureOf("kee", file), HasSubstr("another pass phrase"));
    EXPECT_THAT(failureOf("key", "PK\3\4 a foreign file"), HasSubstr("no exchange file"));
    for (std::size_t length = 1; length + 8 < file.size(); ++length)
        EXPECT_NE(failureOf("key", file.substr(0, length)), "none") << length;
}

TEST(WholeFile, LeavesWhatWasThereUntilItIsWhole) {
    const Poco::TemporaryFile folder;
    std::filesystem::create_directory(folder.path());
    const std::string path = folder.path() + "/a.kst";
    std::ofstream(path) << "before";
    const auto contents = [&] {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    const auto files = [&] { return std::distance(std::filesystem::directory_iterator(folder.path()), {}); };
    {
        WholeFile file(path);
        file.stream() << "half" << std::flush;
        EXPECT_EQ(contents(), "before");
    }
    EXPECT_EQ(contents(), "before");
    EXPECT_EQ(files(), 1);
    WholeFile file(path);
    file.stream() << "after";
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(contents(), "after");
    EXPECT_EQ(files(), 1);
    EXPECT_FALSE(WholeFile(folder.path()).isOpen()) << "a folder";
    EXPECT_FALSE(WholeFile(folder.path() + "/none/a.kst").isOpen());
}

TEST(WholeFile, AFullDiskLeavesNone) {
    WholeFile device("/dev/full");
    device.stream() << "text";
    EXPECT_FALSE(device.commit());
    EXPECT_EQ(device.failure(), "No space left on device");
}

} // namespace
} // namespace kestrel_test
