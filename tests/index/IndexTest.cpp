#include "engine/Index.h"

#include "base/ApiError.h"
#include "base/Work.h"
#include "engine/SnapshotFile.h"
#include "query/Search.h"
#include "storage/DataFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>
#include <thread>

namespace kestrel::index {
namespace {

/// A store and an index in a temporary folder, written to without the write queue.
class IndexTest : public testing::Test {
protected:
    IndexTest() : mFolder(testing::TempDir() + "/index-" + std::to_string(::getpid())), mStore(file()) {}
    ~IndexTest() override { std::filesystem::remove_all(mFolder); }

    std::shared_ptr<Index> makeIndex() {
        const Json mappings = {
            {"properties",
             {{"semanticImageVector", {{"type", "dense_vector"}, {"dims", 3}, {"index", false}}},
              {"projects", {{"type", "nested"}, {"properties", {{"name", {{"type", "keyword"}}}}}}}}}};
        const std::int64_t number = ++mIndices;
        return std::make_shared<Index>(IndexInfo{number, "test", "uuid", 0, Json::object()},
                                       std::make_shared<const Mapping>(mappings), number << kSequenceBits);
    }

    /// As the writer does: fields that the mapping lacks are added.
    static Prepared prepare(Index& index, const Json& document, const std::string& id) {
        auto extended = std::make_shared<Mapping>(*index.mapping());
        auto prepared = DocumentParser(*extended).parse(document, id);
        index.setMapping(std::move(extended));
        return std::make_shared<const PreparedDocument>(std::move(*prepared));
    }

    static void put(Index& index, const std::string& id, const Json* before, const Json& after) {
        DocumentChange change{id, std::nullopt, std::nullopt};
        if (before != nullptr) change.removed = {*index.rowOf(id), prepare(index, *before, id)};
        change.added = {index.takeRow(), prepare(index, after, id)};
        index.apply({change});
    }

    static void remove(Index& index, const std::string& id, const Json& before) {
        index.apply(
            {{id, DocumentChange::State{*index.rowOf(id), prepare(index, before, id)}, std::nullopt}});
    }

    /// The same index, written to a file and read from it.
    std::shared_ptr<Index> throughSnapshot(const Index& index) const {
        const std::filesystem::path file = mFolder / "snapshot";
        SnapshotWriter writer(file);
        index.save(writer);
        writer.finish();
        auto loaded = std::make_shared<Index>(index.info(), index.mapping(), index.lastRow());
        SnapshotReader reader(file);
        loaded->load(reader);
        reader.finish();
        return loaded;
    }

    /// Number of hits and their scores, best first.
    std::string outcome(const std::shared_ptr<Index>& index, const Json& query) {
        SearchRequest request;
        request.query = query;
        const Found found = search(index, mStore, request, 10'000);
        return fmt::format("{}: {}", found.total, fmt::join(found.scores, " "));
    }

private:
    std::filesystem::path file() const {
        std::filesystem::create_directories(mFolder);
        return mFolder / "documents.db";
    }

    std::filesystem::path mFolder;
    std::int64_t mIndices = 0;

protected:
    DocumentStore mStore;
};

Json randomDocument(std::mt19937& random) {
    static const std::vector<std::string> words{"river", "rover", "light", "night", "stone", "stones", "sea"};
    std::string text;
    for (std::size_t i = random() % 50; i > 0; --i)
        text += words[random() % words.size()] + " ";
    Json document = {{"text", text}, {"n", random() % 4}, {"flag", random() % 2 == 0}};
    if (random() % 3 != 0) document["semanticImageVector"] = {random() % 9, random() % 9, 1};
    for (std::size_t i = random() % 3; i > 0; --i)
        document["projects"].push_back({{"name", words[random() % words.size()]}});
    return document;
}

} // namespace

/// Whatever has happened to the documents, an index that was changed along the way, one that is built from
/// the documents that are left, and one that was written to a file in between find the same, with the same
/// scores.
TEST_F(IndexTest, ChangesLeaveNoTrace) {
    std::mt19937 random(5);
    const auto changed = makeIndex();
    std::map<std::string, Json> documents;
    const auto change = [&](int steps) {
        for (int step = 0; step < steps; ++step) {
            const std::string id = std::to_string(random() % 200);
            const auto known = documents.find(id);
            if (known != documents.end() && random() % 3 == 0) {
                remove(*changed, id, known->second);
                documents.erase(known);
                continue;
            }
            const Json document = randomDocument(random);
            put(*changed, id, known == documents.end() ? nullptr : &known->second, document);
            documents[id] = document;
        }
    };
    // Few states have died when the index is written, so that it may be read.
    for (int id = 1000; id < 4000; ++id) {
        const Json document = randomDocument(random);
        put(*changed, std::to_string(id), nullptr, document);
        documents[std::to_string(id)] = document;
    }
    change(1500);
    const auto earlier = throughSnapshot(*changed);
    const std::vector<RowId> rowsThen = earlier->rows();
    change(1500);
    const auto rebuilt = makeIndex();
    for (const auto& [id, document] : documents)
        put(*rebuilt, id, nullptr, document);
    const auto copied = throughSnapshot(*changed);

    // What happened since the earlier state: rows are gone whose content nobody knows, and others came.
    const std::vector<RowId> rowsNow = changed->rows();
    std::vector<RowId> gone;
    std::set_difference(rowsThen.begin(), rowsThen.end(), rowsNow.begin(), rowsNow.end(),
                        std::back_inserter(gone));
    ASSERT_FALSE(gone.empty());
    earlier->forget(gone);
    for (const auto& [id, document] : documents) {
        const RowId row = *changed->rowOf(id);
        if (row > rowsThen.back())
            earlier->apply({{id, std::nullopt, DocumentChange::State{row, prepare(*earlier, document, id)}}});
    }
    EXPECT_EQ(earlier->rows(), rowsNow);
    earlier->requireIntact();

    const std::vector<const char*> queries{
        R"({"match_all": {}})",
        R"({"term": {"text": "stone"}})",
        R"({"term": {"n": 2}})",
        R"({"term": {"flag": true}})",
        R"({"exists": {"field": "projects"}})",
        R"({"match": {"text": {"query": "stone rivr lihgt", "fuzziness": "AUTO:4,6"}}})",
        R"({"nested": {"path": "projects", "query": {"term": {"projects.name": "sea"}}}})",
        R"({"bool": {"must": {"term": {"flag": true}}, "should": {"match": {"text": "night sea"}}}})",
        R"({"bool": {"should": [{"term": {"n": 1}}, {"term": {"flag": false}}], "minimum_should_match": 2}})",
        R"({"script_score": {"query": {"exists": {"field": "semanticImageVector"}}, "script": {
            "params": {"semanticVector": [1, 2, 0]},
            "source": "cosineSimilarity(params.semanticVector,\"semanticImageVector\")+1.0"}}})"};
    for (const char* query : queries) {
        const std::string expected = outcome(rebuilt, Json::parse(query));
        EXPECT_EQ(outcome(changed, Json::parse(query)), expected) << query;
        EXPECT_EQ(outcome(copied, Json::parse(query)), expected) << query;
        EXPECT_EQ(outcome(earlier, Json::parse(query)), expected) << query;
    }
}

/// Scores that Elasticsearch 8 gives for the same documents: keywords count by rarity alone, fuzzy spellings
/// share the frequency of the most frequent one, required and optional clauses add up.
TEST_F(IndexTest, ScoresAsLuceneDoes) {
    const auto index = makeIndex();
    put(*index, "1", nullptr, {{"text", "the river is wide"}, {"tag", "x"}});
    put(*index, "2", nullptr, {{"text", "the rover is near"}, {"tag", "x"}});
    put(*index, "3", nullptr, {{"text", "the road"}, {"tag", "y"}});
    // idf(2 of 3) = ln(1 + 1.5 / 2.5); a keyword scores its idf.
    EXPECT_EQ(outcome(index, Json::parse(R"({"term": {"tag.keyword": "x"}})")), "2: 0.4700036 0.4700036");
    EXPECT_EQ(outcome(index, Json::parse(R"({"term": {"flag": true}})")), "0: ");
    // "river" and "rover" each are in one document; the second is one edit away: a boost of 0.8.
    const std::string fuzzy =
        outcome(index, Json::parse(R"({"match": {"text": {"query": "river", "fuzziness": "AUTO:4,6"}}})"));
    const Bm25 similarity({3, 10});
    const float whole = similarity.score(similarity.weight(1, 1.0F), 1, 4);
    const float nearly = similarity.score(similarity.weight(1, 0.8F), 1, 4);
    EXPECT_EQ(fuzzy, fmt::format("2: {} {}", whole, nearly));
    const std::string both = outcome(
        index,
        Json::parse(
            R"({"bool": {"must": {"term": {"tag.keyword": "x"}}, "should": {"match": {"text": "river"}}}})"));
    EXPECT_EQ(both, fmt::format("2: {} {}", 0.4700036F + whole, 0.4700036F));
}

/// What is set aside may turn out to be readable when it is replaced.
TEST_F(IndexTest, ADocumentThatWasSetAsideLeavesNoTrace) {
    const auto index = makeIndex();
    const Json document = {{"text", "the river"}, {"projects", {{{"name", "A"}}}}};
    index->apply({{"1", std::nullopt, DocumentChange::State{index->takeRow(), nullptr}}});
    EXPECT_EQ(index->documentCount(), 0);
    put(*index, "1", &document, document);
    EXPECT_EQ(index->documentCount(), 1);
    EXPECT_EQ(outcome(index, Json::parse(R"({"term": {"text": "river"}})")).substr(0, 2), "1:");
}

/// A document is found once, though several words of the query touch it and none of them scores.
TEST_F(IndexTest, ABoostOfZeroFindsEachDocumentOnce) {
    const auto index = makeIndex();
    put(*index, "1", nullptr, {{"text", "the river"}});
    EXPECT_EQ(outcome(index, Json::parse(R"({"match": {"text": {"query": "the river", "boost": 0}}})")),
              "1: 0");
}

TEST_F(IndexTest, AReaderDoesNotOvertakeAWaitingWriter) {
    FairSharedMutex mutex;
    bool written = false;
    mutex.lock_shared();
    std::thread writer([&] {
        const std::lock_guard lock(mutex);
        written = true;
    });
    while (!mutex.writerWaits())
        std::this_thread::yield();
    std::thread reader([&] {
        const std::shared_lock lock(mutex);
        EXPECT_TRUE(written);
    });
    std::this_thread::yield();
    mutex.unlock_shared();
    writer.join();
    reader.join();
}

/// Clients give up a write after some seconds and try it again.
TEST_F(IndexTest, ASearchThatTakesLongGivesWayToAWriter) {
    const auto index = makeIndex();
    MemoryBudget budget(1'000'000);
    MemoryBudget::Lease memory(budget);
    Work work(
        std::chrono::hours(1), memory, [] { return false; }, std::chrono::milliseconds(0));
    const Work::Scope scope(&work);
    std::thread writer;
    try {
        const IndexView view(*index);
        checkStillWanted();
        writer = std::thread([&] { index->remember("written"); });
        for (;;)
            checkStillWanted();
    } catch (const ApiError& e) {
        EXPECT_EQ(e.status(), 503);
    }
    writer.join();
    EXPECT_TRUE(index->knows("written"));
}

/// A search is given up in the middle, whichever of its parts is at work: each error names its reason.
TEST_F(IndexTest, SearchesEndWhenTheirTimeIsUpOrTheirClientHasGone) {
    const auto index = makeIndex();
    for (int i = 0; i < 10; ++i)
        put(*index, std::to_string(i), nullptr, {{"text", "the river"}, {"n", i}, {"times", {1, 2}}});
    MemoryBudget budget(1'000'000);
    MemoryBudget::Lease memory(budget);
    const auto typeOfError = [&](std::chrono::seconds time, bool abandoned,
                                 const char* query) -> std::string {
        Work work(time, memory, [=] { return abandoned; });
        const Work::Scope scope(&work);
        try {
            return outcome(index, Json::parse(query));
        } catch (const ApiError& e) {
            return e.body().at("error").at("root_cause").at(0).at("type");
        }
    };
    const char* const queries[] = {R"({"match": {"text": {"query": "rivr", "fuzziness": 1}}})",
                                   R"({"bool": {"should": [{"term": {"n": 1}}]}})",
                                   R"({"terms": {"n": [1]}})"};
    for (const char* const query : queries) {
        EXPECT_EQ(typeOfError(std::chrono::seconds(-1), false, query), "search_timeout_exception") << query;
        EXPECT_EQ(typeOfError(std::chrono::hours(1), true, query), "task_cancelled_exception") << query;
        EXPECT_NE(typeOfError(std::chrono::hours(1), false, query).find(':'), std::string::npos) << query;
    }
}

} // namespace kestrel::index
