// What an export asks the store, and the file it leaves.

#include "tests/exchange/ExchangeStore.h"

#include <csignal>
#include <filesystem>
#include <sys/resource.h>

namespace kestrel_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Lets no file of this process grow beyond a size: a disk that fills up.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) : mHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &mBefore);
        const rlimit limited{bytes, mBefore.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &mBefore);
        std::signal(SIGXFSZ, mHandler);
    }

private:
    rlimit mBefore{};
    void (*mHandler)(int);
};

class Export : public ExchangeStore {
protected:
    KsNN_ErrorCode run(std::vector<std::string> clips, std::vector<std::string> projects, int pageSize,
                       const KsNNProgressCallback& progress = nullptr, bool plainCopy = false) {
        return mStore->ExportDBContentsToKST(std::move(clips), "p", std::move(projects), mFile.path(),
                                             mCounter, progress, false, plainCopy, pageSize);
    }
    /// Refresh of the index, and twice more before the count.
    void scriptStart() { mServer.script({ok(), ok(), ok(), ok(), count(9)}); }

    int mCounter = 100;
};

TEST_F(Export, AsksPageByPageAndWritesTheAnswersAsTheyCame) {
    scriptStart();
    mServer.script({page(R"({"_id": "1"}, {"_id": "2"})", "first"),
                    page(R"({"_id": "3"}, {"_id": "4"})", "other"), page(R"({"_id": "5"})")});
    std::vector<std::pair<int, int>> told;
    const auto progress = [&](int current, int total, const char* text) {
        EXPECT_STREQ(text, "");
        told.emplace_back(current, total);
        return KsNN_Success;
    };
    ASSERT_EQ(run({"a", "b"}, {"unused"}, 2, progress, true), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(mCounter, 100 + 3 + 5);
    EXPECT_THAT(told, ElementsAre(std::pair(100, 9), std::pair(103, 9), std::pair(106, 9)));
    EXPECT_EQ(bodyOf(5), normalised(R"({"query": {"bool": {
        "must": [{"term": {"projectGuidList.keyword": "p"}}],
        "should": [{"term": {"mediaGuid.keyword": "a"}}, {"term": {"mediaGuid.keyword": "b"}}],
        "minimum_should_match": 1}}, "size": 2,
        "sort": [{"mediaGuid.keyword": {"order": "asc", "mode": "min"}},
                 {"segment": {"order": "asc", "mode": "min"}}]})"));
    EXPECT_EQ(mServer.requests()[5].line(), "GET /clips/_search?scroll=10m");
    EXPECT_EQ(mServer.requests()[7].line(), "POST /_search/scroll");
    EXPECT_EQ(bodyOf(7), normalised(R"({"scroll_id": "first", "scroll": "10m"})"));

    const std::vector<std::string> elements = pages();
    ASSERT_EQ(elements.size(), 3U);
    EXPECT_EQ(normalised(elements[1]),
              normalised(R"({"_scroll_id": "other", "hits": {"hits": [{"_id": "3"}, {"_id": "4"}]}})"));
    EXPECT_EQ(contents(".gtest"), "[" + elements[0] + "," + elements[1] + "," + elements[2] + "]\n");
    std::stringstream plain("[" + elements[0] + "," + elements[1] + "," + elements[2] + "]");
    std::stringstream whole;
    mStore->IEncryptStream(plain, whole, false);
    EXPECT_EQ(contents(), whole.str());
    std::filesystem::remove(mFile.path() + ".gtest");
}

TEST_F(Export, OfProjectsAndOfNothing) {
    scriptStart();
    mServer.script({page("")});
    ASSERT_EQ(run({}, {"p", "q"}, 1000), KsNN_Success);
    EXPECT_EQ(mCounter, 100);
    EXPECT_THAT(bodyOf(5), HasSubstr(normalised(R"({"query": {"bool": {
        "should": [{"term": {"projectGuidList.keyword": "p"}}, {"term": {"projectGuidList.keyword": "q"}}],
        "minimum_should_match": 1}}})")
                                         .substr(1, 30)));
    EXPECT_EQ(pages().size(), 1U);

    mServer.script({missing()});
    EXPECT_EQ(run({}, {"p"}, 1000), KsNN_Success) << "a store without an index is empty";
    EXPECT_EQ(contents(), "");
}

TEST_F(Export, FailuresLeaveWhatWasThere) {
    std::ofstream(mFile.path()) << "before";
    scriptStart();
    mServer.script({page(R"({"_id": "1"})"), Reply::json(500, "{}")});
    EXPECT_EQ(run({}, {"p"}, 1), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("KsNNDatabase::ExportDBContentsToKST err: "));
    scriptStart();
    EXPECT_EQ(run({}, {"p"}, 1, [](int, int, const char*) { return KsNN_LockConflict; }), KsNN_LockConflict);
    EXPECT_EQ(contents(), "before");

    int counter = 0;
    const std::string folder = std::filesystem::temp_directory_path();
    for (const std::string& path : {std::string("/nonexistent/x"), folder}) {
        EXPECT_EQ(mStore->ExportDBContentsToKST({}, "", {"p"}, path, counter, nullptr, false, false, 1),
                  KsNN_Error)
            << path;
        EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("KsNNDatabase::ExportDBContentsToKST err: "));
    }
    scriptStart();
    mServer.script({page("")});
    EXPECT_EQ(mStore->ExportDBContentsToKST({}, "", {"p"}, "/dev/full", counter, nullptr, false, false, 1),
              KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("No space left on device"));
}

TEST_F(Export, ADiskThatFillsUpLeavesWhatWasThere) {
    namespace fs = std::filesystem;
    const std::string large = R"({"_id": ")" + std::string(5000, 'x') + R"("})";
    const auto exported = [&] {
        scriptStart();
        mServer.script({page(large), page(large), page("")});
        return run({}, {"p"}, 1, nullptr, true);
    };
    ASSERT_EQ(exported(), KsNN_Success);
    const rlim_t whole = contents().size();
    for (const char* suffix : {"", ".gtest"})
        std::filesystem::remove(mFile.path() + suffix);
    for (const bool isReplacing : {false, true}) {
        if (isReplacing) std::ofstream(mFile.path()) << "before";
        for (const rlim_t room : {rlim_t{0}, whole / 3, whole * 2 / 3, whole - 1}) { // in the plain copy, too
            SCOPED_TRACE(room);
            const FullDisk disk(room);
            EXPECT_EQ(exported(), KsNN_Error);
            EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("File too large"));
            mServer.reset();
            EXPECT_EQ(contents(), isReplacing ? "before" : "");
            for (const auto& left : fs::directory_iterator(fs::path(mFile.path()).parent_path()))
                EXPECT_FALSE(left.path() != mFile.path() && left.path().string().starts_with(mFile.path()))
                    << left.path();
        }
    }
}

} // namespace
} // namespace kestrel_test
