// Exchange files as applications read and extend them.

#include "kestrelml/exchange/KsNNExchangeFile.h"
#include "tests/exchange/ExchangeStore.h"

namespace kestrel_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ExchangeFile : public ExchangeStore {
protected:
    std::vector<std::string> read(const std::string& path) {
        std::vector<std::string> pages;
        mCode = kestrelml::readExchangeFile(
            *mStore, path,
            [&](const std::string& page) {
                pages.push_back(page);
                return pages.size() == mMost ? KsNN_LockConflict : KsNN_Success;
            },
            false);
        return pages;
    }
    KsNN_ErrorCode copy() {
        return kestrelml::copyExchangeFile(*mStore, mFile.path(), mCopy.path(), R"({"own": 1})", false);
    }

    Poco::TemporaryFile mCopy;
    KsNN_ErrorCode mCode = KsNN_Success;
    std::size_t mMost = 9;
};

TEST_F(ExchangeFile, IsCopiedWithAnotherPage) {
    writePages({R"({"hits": 1})", R"({"hits": 2})"});
    ASSERT_EQ(copy(), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_THAT(read(mCopy.path()), ElementsAre(R"({"hits": 1})", R"({"hits": 2})", R"({"own": 1})"));
    EXPECT_EQ(mCode, KsNN_Success);
    mMost = 1;
    EXPECT_THAT(read(mCopy.path()), ElementsAre(R"({"hits": 1})"));
    EXPECT_EQ(mCode, KsNN_LockConflict) << "the reader's own result";
}

TEST_F(ExchangeFile, WhatCannotBeReadIsNotCopied) {
    std::ofstream(mCopy.path()) << "before";
    writePages({R"({"hits": 1})"});
    usePassPhrase("another");
    EXPECT_EQ(copy(), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("another pass phrase"));
    std::ifstream in(mCopy.path());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "before");
    EXPECT_THAT(read(mFile.path() + ".missing"), ElementsAre());
    EXPECT_EQ(mCode, KsNN_Error);
}

} // namespace
} // namespace kestrel_test
