// Exchange files as applications read and extend them.

#include "kestrelml/exchange/KsNNExchangeFile.h"
#include "tests/exchange/ExchangeStore.h"
#include "tests/store/NewProcess.h"

#include <Poco/Exception.h>

#include <iostream>

namespace kestrel_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ExchangeFile : public ExchangeStore {
protected:
    KsNN_ErrorCode read(const std::string& path, const kestrelml::ExchangePageVisitor& visit) {
        return kestrelml::readExchangeFile(*mStore, path, visit, false);
    }
    KsNN_ErrorCode exportTo(const std::string& path) {
        return kestrelml::exportExchangeFile(*mStore, {{}, "", {"p"}, 2}, path, R"({"own": 1})", mCounter,
                                             nullptr, false);
    }
    void scriptExport() {
        mServer.script({ok(), ok(), ok(), ok(), count(3), page(R"({"_id": "1"}, {"_id": "2"})"),
                        page(R"({"_id": "3"})")});
    }

    int mCounter = 0;
};

TEST_F(ExchangeFile, IsWrittenWithAnotherPage) {
    scriptExport();
    ASSERT_EQ(exportTo(mFile.path()), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(mCounter, 3) << "documents only";
    const std::vector<std::string> written = pages();
    EXPECT_THAT(written, ElementsAre(HasSubstr(R"("1")"), HasSubstr(R"("3")"), R"({"own": 1})"));

    std::vector<std::string> seen;
    EXPECT_EQ(read(mFile.path(),
                   [&](const std::string& page) {
                       seen.push_back(page);
                       return seen.size() == 2 ? KsNN_LockConflict : KsNN_Success;
                   }),
              KsNN_LockConflict)
        << "the visitor's own result";
    EXPECT_THAT(seen, ElementsAre(written[0], written[1]));
}

TEST_F(ExchangeFile, ThatCannotBeWrittenIsReportedWithTheReason) {
    EXPECT_EQ(exportTo("/nonexistent/x"), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("No such file or directory"));
    EXPECT_THAT(mServer.requests(), testing::IsEmpty()) << "known before anything is read";
    scriptExport();
    EXPECT_EQ(exportTo("/dev/full"), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("No space left on device"));
}

TEST_F(ExchangeFile, ThatCannotBeReadIsReportedWithTheReason) {
    const auto ignore = [](const std::string&) { return KsNN_Success; };
    for (const auto& [path, reason] : {std::pair<std::string, std::string>{"/", "it is a directory"},
                                       {"/nonexistent/x", "No such file or directory"}}) {
        EXPECT_EQ(read(path, ignore), KsNN_Error);
        EXPECT_THAT(mStore->GetErrorStr(),
                    HasSubstr("The exchange file " + path + " cannot be read: " + reason));
    }
    writePages({R"({"hits": 1})"});
    EXPECT_EQ(
        read(mFile.path(),
             [](const std::string&) -> KsNN_ErrorCode { throw Poco::WriteFileException("of the visitor"); }),
        KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("of the visitor")) << "the pass phrase is right";
    usePassPhrase("another");
    EXPECT_EQ(read(mFile.path(), ignore), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("another pass phrase"));
}

TEST(ExchangeFiles, NeedAPassPhrase) {
    expectInNewProcess(
        [] {
            KsNNDatabase store(kNobody, nullptr, nullptr, nullptr, false);
            const Poco::TemporaryFile file;
            int counter = 0;
            kestrelml::exportExchangeFile(store, {}, file.path(), "", counter, nullptr, false);
            std::cerr << store.GetErrorStr() << std::ifstream(file.path()).is_open();
            std::ofstream(file.path()) << "x";
            kestrelml::readExchangeFile(
                store, file.path(), [](const std::string&) { return KsNN_Success; }, false);
            std::cerr << store.GetErrorStr();
        },
        "written: no pass phrase is set\n0.*read: no pass phrase is set");
}

} // namespace
} // namespace kestrel_test
