// What the store sends: documents and queries.

#include "kestrelml/store/Schema.h"
#include "tests/store/ScriptedStore.h"

namespace kestrel_test {
namespace {

const Reply kCreated = Reply::json(201, R"({"result": "created"})");

KsNNDBEntryBase someBase() {
    KsNNDBEntryBase base;
    base.projectName = "Film \"7\"";
    base.model = "small";
    base.clipName = "A001";
    base.audioTracks = "1,2";
    base.clientApp = "Editor";
    return base;
}

KsNNDBEntrySeg someSegment(int index) {
    KsNNDBEntrySeg seg;
    seg.segment = index;
    seg.mediaGuid = "m/1";
    seg.projectGuid = "p1";
    seg.transcript = "Hé\tline\nбуква 😀";
    seg.language = "fr";
    seg.speakerID = "S0";
    seg.speakerGuid = "not written";
    seg.wordStartsMS = {0, 10};
    seg.wordEndsMS = {9, 20};
    seg.projectGuidList = {"x", "y"};
    return seg;
}

const char* const kSegmentPart = R"("segment": %d, "mediaGuid": "m/1", "transcript": "Hé\tline\nбуква 😀",
    "wordStartsMS": [0, 10], "wordEndsMS": [9, 20], "language": "fr", "speakerID": "S0")";
const char* const kClipPart = R"("model": "small", "clipName": "A001", "audioTracks": "1,2",
    "progressComplete": false, "clientApp": "Editor")";

/// A document from the parts above and what is special in the case.
std::string document(int index, const std::string& special) {
    std::string segmentPart = kSegmentPart;
    segmentPart.replace(segmentPart.find("%d"), 2, std::to_string(index));
    return "{" + segmentPart + (index == 0 ? std::string(", ") + kClipPart : "") + ", " + special + "}";
}

class Bodies : public ScriptedStore {
protected:
    void answerWritesOf(int storedSegments) {
        mServer.otherwise([=](const RecordedRequest& request) {
            if (request.target.find("_doc/") != std::string::npos) return ok(R"({"found": true})");
            if (request.target.find("_count") != std::string::npos) return count(storedSegments);
            if (request.target.find("_search") != std::string::npos) {
                return hits(R"({"_id": "z", "_source": {"progressComplete": false}})");
            }
            return request.target == "/clips/_doc" ? kCreated : ok();
        });
    }
    std::string lastBody() const { return bodyOf(mServer.requests().size() - 1); }
};

TEST_F(Bodies, VersionTwoDocuments) {
    answerWritesOf(0);
    ASSERT_EQ(mStore->WriteToDB(someBase(), someSegment(0), false), KsNN_Success) << mStore->GetErrorStr();
    EXPECT_EQ(lastBody(), normalised(document(0, R"("projectGuidList": ["p1"], "schemaVersion": 2,
        "projectList": [{"projectGuid": "p1", "projectName": "Film \"7\""}])")));
    answerWritesOf(1);
    ASSERT_EQ(mStore->WriteToDB(someBase(), someSegment(1), false), KsNN_Success);
    EXPECT_EQ(lastBody(), normalised(document(1, R"("projectGuidList": ["p1"])")));
}

TEST_F(Bodies, VersionOneDocuments) {
    answerWritesOf(0);
    ASSERT_EQ(mStore->WriteToDBVer1(someBase(), someSegment(0), false), KsNN_Success);
    EXPECT_EQ(lastBody(), normalised(document(0, R"("projectGuid": "p1", "project": "Film \"7\"")")));
    ASSERT_EQ(mStore->WriteToDBVer1(someBase(), someSegment(1), false), KsNN_Success);
    EXPECT_EQ(lastBody(), normalised(document(1, R"("projectGuid": "p1")")));
}

TEST_F(Bodies, BulkLines) {
    KsNNDB_STTClipEntry entry;
    static_cast<KsNNDBEntryBase&>(entry) = someBase();
    entry.projects = {{"X", "x"}, {"Y", "y"}};
    std::ostringstream bulk;
    for (const int index : {0, 1, 2})
        kestrelml::detail::appendBulkCreate(entry, someSegment(index), bulk);

    std::istringstream lines(bulk.str());
    std::vector<std::string> documents;
    for (std::string action, line; std::getline(lines, action) && std::getline(lines, line);) {
        EXPECT_EQ(action, R"({ "create" : {} })");
        documents.push_back(normalised(line));
    }
    EXPECT_EQ(bulk.str().back(), '\n');
    ASSERT_EQ(documents.size(), 3U);
    EXPECT_EQ(documents[0],
              normalised(document(0, R"("projectGuidList": ["x", "y"], "schemaVersion": 2, "projectList":
        [{"projectGuid": "x", "projectName": "X"}, {"projectGuid": "y", "projectName": "Y"}])")));
    EXPECT_EQ(documents[2], normalised(document(2, R"("projectGuidList": ["x", "y"])")));
}

TEST_F(Bodies, LockAndIndexDefinition) {
    mServer.script({missing(), missing(), ok(), ok(), kCreated});
    ASSERT_EQ(mStore->LockEntry("m", false), KsNN_Success);
    EXPECT_EQ(bodyOf(2), normalised(R"({"settings": {"number_of_shards": 1}, "mappings": {"properties": {
        "projectList": {"type": "nested", "properties": {"projectGuid": {"type": "keyword"},
                                                         "projectName": {"type": "keyword"}}}}}})"));
    EXPECT_EQ(bodyOf(4), normalised(R"({"KSNNlock": true})"));
}

TEST_F(Bodies, ListOfLocks) {
    mServer.script({ok(), ok(), hits(R"({"_id": "b"}, {"_id": "c"})")});
    std::vector<std::string> found = {"a"};
    ASSERT_EQ(mStore->FindAllLockedMediaGuids(found, false), KsNN_Success);
    EXPECT_EQ(bodyOf(2), normalised(R"({"query": {"exists": {"field": "KSNNlock"}}})"));
    EXPECT_THAT(found, testing::ElementsAre("a", "b", "c"));
}

TEST_F(Bodies, CountQueries) {
    const std::tuple<int, const char*, const char*> cases[] = {
        {2, "p", R"([{"term": {"mediaGuid.keyword": "m"}}, {"term": {"projectGuidList.keyword": "p"}}])"},
        {2, "ANY", R"([{"term": {"mediaGuid.keyword": "m"}}])"},
        {1, "p", R"([{"term": {"mediaGuid.keyword": "m"}}, {"term": {"projectGuid.keyword": "p"}}])"},
        {1, "ANY", R"([{"term": {"mediaGuid.keyword": "m"}}, {"term": {"projectGuid.keyword": "ANY"}}])"},
    };
    for (const auto& [version, project, conditions] : cases) {
        mServer.script({ok(), ok(), count(4)});
        int n = 0;
        ASSERT_EQ(mStore->GetSegmentCount("m", project, n, false, version), KsNN_Success);
        EXPECT_EQ(n, 4);
        EXPECT_EQ(lastBody(),
                  normalised(R"({"query": {"bool": {"must": )" + std::string(conditions) + "}}}"));
    }
}

TEST_F(Bodies, CompletionQueriesAndUpdate) {
    answerWritesOf(2);
    ASSERT_EQ(mStore->SetProgressComplete("m", false, 2, ""), KsNN_Success);
    EXPECT_EQ(bodyOf(4),
              normalised(R"({"query": {"bool": {"must": [{"term": {"mediaGuid.keyword": "m"}}]}}})"));
    EXPECT_EQ(bodyOf(5), normalised(R"({"query": {"bool": {"must": [{"term": {"mediaGuid.keyword": "m"}},
                                                                    {"term": {"segment": 0}}]}}})"));
    EXPECT_EQ(lastBody(), normalised(R"({"doc": {"progressComplete": true}})"));
    mServer.reset();
    ASSERT_EQ(mStore->SetProgressComplete("m", false, 1, "p"), KsNN_Success);
    EXPECT_EQ(bodyOf(5), normalised(R"({"query": {"bool": {"must": [{"term": {"mediaGuid.keyword": "m"}},
                                    {"term": {"segment": 0}}, {"term": {"projectGuid.keyword": "p"}}]}}})"));
}

TEST_F(Bodies, TranscriptAndPhraseQueries) {
    for (const int version : {1, 2}) {
        mServer.script({ok(), ok(), hits("")});
        KsNNDB_STTClipEntry entry;
        ASSERT_EQ(mStore->GetDBContents("m", "p", entry, false, version), KsNN_Success);
        const std::string field = version == 1 ? "projectGuid.keyword" : "projectGuidList.keyword";
        EXPECT_EQ(lastBody(), normalised(R"({"query": {"bool": {"must": [{"term": {"mediaGuid.keyword": "m"}},
            {"term": {")" + field + R"(": "p"}}]}}, "sort": [{"segment": {"order": "asc", "mode": "min"}}],
            "size": 10000})"));
    }
    for (const int size : {0, 5}) {
        mServer.script({ok(), ok(), hits("")});
        std::vector<KsNNSearchResults> results;
        ASSERT_EQ(mStore->Search("rich \"peeple\"", "p", 0.6F, results, size, false), KsNN_Success);
        EXPECT_EQ(lastBody(),
                  normalised(R"({"query": {"bool": {"must": {"term": {"projectGuidList.keyword": "p"}},
            "should": {"match": {"transcript": {"query": "rich \"peeple\"", "fuzziness": "AUTO:4,6"}}}}})" +
                             std::string(size == 0 ? "}" : R"(, "size": 5})")));
    }
}

TEST_F(Bodies, DebugOnlyPrints) {
    const auto write = [&](bool debug) {
        answerWritesOf(1);
        mServer.reset();
        testing::internal::CaptureStdout();
        mStore->WriteToDB(someBase(), someSegment(1), debug);
        return std::pair{mServer.conversation(), testing::internal::GetCapturedStdout()};
    };
    const auto [quietly, nothing] = write(false);
    const auto [loudly, trace] = write(true);
    EXPECT_EQ(quietly, loudly);
    EXPECT_EQ(nothing, "");
    EXPECT_THAT(trace, testing::HasSubstr("\nKsNNDatabase::WriteToDB: Creating new document.\n"));
    EXPECT_THAT(trace, testing::HasSubstr("\nresult: created\n"));
    EXPECT_THAT(trace,
                testing::HasSubstr("RESTCall: No stored encrypted credentials. Using transcript_user_dbg "
                                   "credentials.\n"));
}

} // namespace
} // namespace kestrel_test
