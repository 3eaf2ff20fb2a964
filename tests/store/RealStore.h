#pragma once

#include "kestrelml/store/KsNNDatabase.h"
#include "tests/support/IndexService.h"

#include <Poco/UUIDGenerator.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

namespace kestrel_test {

/// A store on a real index service, with a transcript index of its own for each test.
class RealStore : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sService.emplace();
        sService->giveCredentialsToLibrary();
    }
    static void TearDownTestSuite() { sService.reset(); }

    RealStore() {
        KsNNDatabase::setTranscriptIndex("kestrel_test_" + Poco::UUIDGenerator().createRandom().toString());
    }
    ~RealStore() override { mStore.DeleteIndex(KsNNDatabase::getTranscriptIndex(), false); }

    static KsNNDatabase connect() { return {sService->uri().c_str(), nullptr, nullptr, nullptr, false}; }

    static KsNNDBEntrySeg segment(const std::string& clip, int index, const std::string& text,
                                  int startMS = 0) {
        KsNNDBEntrySeg seg;
        seg.segment = index;
        seg.mediaGuid = clip;
        seg.projectGuid = "project one";
        seg.transcript = text;
        seg.language = "en";
        const auto words = text.empty() ? 0 : 1 + std::count(text.begin(), text.end(), ' ');
        for (int w = 0; w < words; ++w) {
            seg.wordStartsMS.push_back(startMS + 100 * w);
            seg.wordEndsMS.push_back(startMS + 100 * w + 90);
        }
        return seg;
    }

    static KsNNDBEntryBase base() {
        KsNNDBEntryBase result;
        result.projectName = "Film";
        result.clipName = "A001";
        return result;
    }

    void writeClip(const std::string& clip, const std::vector<std::string>& texts) {
        ASSERT_EQ(mStore.LockEntry(clip, false), KsNN_Success) << mStore.GetErrorStr();
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const int index = static_cast<int>(i);
            ASSERT_EQ(mStore.WriteToDB(base(), segment(clip, index, texts[i], 1000 * index), false),
                      KsNN_Success)
                << mStore.GetErrorStr();
        }
        ASSERT_EQ(mStore.SetProgressComplete(clip, false, 2, ""), KsNN_Success) << mStore.GetErrorStr();
        ASSERT_EQ(mStore.UnlockEntry(clip, false), KsNN_Success) << mStore.GetErrorStr();
    }

    inline static std::optional<IndexService> sService;
    KsNNDatabase mStore = connect();
};

enum class Engine { KestrelIndex, Elasticsearch };

inline void PrintTo(Engine engine, std::ostream* out) {
    *out << (engine == Engine::KestrelIndex ? "KestrelIndex" : "Elasticsearch");
}

/// A store on the engine of storage that is the parameter. Skips a genuine Elasticsearch when there is none.
class StoreOnEachEngine : public RealStore, public testing::WithParamInterface<Engine> {
protected:
    StoreOnEachEngine() {
        if (GetParam() == Engine::Elasticsearch) mElasticsearch = IndexService::elasticsearch();
        useCredentials();
        mStore = KsNNDatabase(service().uri().c_str(), nullptr, nullptr, nullptr, false);
    }
    void SetUp() override {
        if (GetParam() == Engine::Elasticsearch && mElasticsearch == nullptr)
            GTEST_SKIP() << "KESTREL_ELASTICSEARCH_URI names no Elasticsearch";
    }

    const IndexService& service() const { return mElasticsearch == nullptr ? *sService : *mElasticsearch; }
    /// Gives the library the engine's credentials, and takes care that these do not rename the test's index.
    void useCredentials() const {
        const std::string index = KsNNDatabase::getTranscriptIndex();
        service().giveCredentialsToLibrary();
        KsNNDatabase::setTranscriptIndex(index);
    }

private:
    std::unique_ptr<IndexService> mElasticsearch;
};

#define KESTREL_ON_EACH_ENGINE(Suite)                                                                        \
    INSTANTIATE_TEST_SUITE_P(On, Suite, testing::Values(Engine::KestrelIndex, Engine::Elasticsearch),        \
                             testing::PrintToStringParamName())

} // namespace kestrel_test
