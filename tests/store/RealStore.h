#pragma once

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/Schema.h"
#include "tests/store/Operations.h"
#include "tests/support/IndexService.h"

#include <Poco/UUIDGenerator.h>
#include <gtest/gtest.h>

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

    /// Writes a complete clip of project "p", as a host does.
    void writeClip(const std::string& clip, const std::vector<std::string>& texts) {
        ASSERT_EQ(mStore.LockEntry(clip, false), KsNN_Success) << mStore.GetErrorStr();
        int index = 0;
        for (const std::string& text : texts) {
            ASSERT_EQ(mStore.WriteToDB(someClip(), someSegment(clip, index++, text, text), false),
                      KsNN_Success)
                << mStore.GetErrorStr();
        }
        ASSERT_EQ(mStore.SetProgressComplete(clip, false, 2, ""), KsNN_Success) << mStore.GetErrorStr();
        ASSERT_EQ(mStore.UnlockEntry(clip, false), KsNN_Success) << mStore.GetErrorStr();
    }

    /// Appends a clip of projects whose names are their identifiers, for `sendBulk`.
    static void appendClip(std::stringstream& bulk, const std::string& clip, int segments,
                           const std::vector<std::string>& projects, bool isComplete) {
        KsNNDB_STTClipEntry entry;
        static_cast<KsNNDBEntryBase&>(entry) = someClip();
        entry.progressComplete = isComplete;
        for (const std::string& project : projects)
            entry.projects.push_back({project, project});
        for (int index = 0; index < segments; ++index) {
            KsNNDBEntrySeg seg = someSegment(clip, index, "words");
            seg.projectGuidList = projects;
            kestrelml::detail::appendBulkCreate(entry, seg, bulk);
        }
    }
    void sendBulk(std::stringstream& bulk) {
        ASSERT_EQ(send("PUT", kestrelml::detail::bulkPath(KsNNDatabase::getTranscriptIndex()), bulk.str()),
                  200U);
    }

    /// Sends a request of the test's own; returns its status.
    unsigned send(const std::string& method, const std::string& path, const std::string& body = "",
                  Poco::JSON::Object::Ptr* answer = nullptr) {
        std::stringstream text(body);
        Poco::JSON::Object::Ptr ignored;
        unsigned status = 0;
        RESTCall(method, path, 60, text, answer == nullptr ? ignored : *answer, status, &mStore, true, true,
                 false);
        return status;
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
