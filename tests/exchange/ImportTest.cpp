// What an import does to the store, and what keeps it from doing anything.

#include "tests/exchange/ExchangeStore.h"

namespace kestrel_test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string document(const std::string& clip, int segment, const std::string& projects,
                     const std::string& special = "") {
    std::string text = R"({"_id": "x", "_source": {"mediaGuid": ")" + clip + R"(", "segment": )" +
                       std::to_string(segment) + R"(, "transcript": "Hé \"du\"", "language": "de",
        "speakerID": "1", "projectGuidList": [)" +
                       projects + R"(], "wordStartsMS": [0, 10], "wordEndsMS": [9, 20])";
    if (segment == 0)
        text +=
            R"(, "model": "small", "clipName": "A", "audioTracks": "1", "clientApp": "E", "schemaVersion": 2,
            "progressComplete": false, "projectList": [])";
    return text + special + "}}";
}

std::string pageOf(const std::string& documents) {
    return R"({"hits": {"hits": [)" + documents + "]}}";
}

class Import : public ExchangeStore {
protected:
    Import() {
        mServer.otherwise([this](const RecordedRequest& request) {
            const auto asks = [&](const char* part) {
                return request.target.find(part) != std::string::npos;
            };
            if (asks("scroll=")) return page(mExisting);
            if (asks("_search"))
                return ok(R"({"aggregations": {"projects": {"projectGuid": {"buckets": [
                    {"key": "q", "projectName": {"buckets": [{"key": "Q"}]}}]}}}})");
            if (asks("_bulk")) return ok(mBulkAnswer);
            if (asks("_delete_by_query")) return mDeletion;
            return ok();
        });
    }
    KsNN_ErrorCode run(const KsNNProgressCallback& progress = nullptr) {
        return mStore->ImportDBContentsFromKST(mFile.path(), "p", "P", progress, false);
    }
    /// Requests that change the store.
    std::vector<std::string> changes() const {
        std::vector<std::string> lines;
        for (const RecordedRequest& request : mServer.requests()) {
            if (request.line().find("_by_query") != std::string::npos ||
                request.line().find("_bulk") != std::string::npos)
                lines.push_back(request.line());
        }
        return lines;
    }
    /// Documents of the bulk request.
    std::vector<std::string> created() const {
        std::istringstream lines(mServer.requests().back().body);
        std::vector<std::string> documents;
        for (std::string action, line; std::getline(lines, action) && std::getline(lines, line);)
            documents.push_back(normalised(line));
        return documents;
    }

    std::string mExisting = R"({"_source": {"mediaGuid": "z"}}, {"_source": {"mediaGuid": "a"}})";
    std::string mBulkAnswer = R"({"errors": false, "items": []})";
    Reply mDeletion = ok(R"({"deleted": 3})");
};

TEST_F(Import, ReplacesWhatIsThereAndFilesTheRest) {
    writePages({pageOf(document("a", 0, R"("q", "unknown", "p")") + "," + document("a", 1, R"("unknown")")),
                pageOf(document("b", 0, R"("unknown")", R"(, "speakerGuid": "s")"))});
    std::vector<std::tuple<int, int, std::string>> told;
    ASSERT_EQ(run([&](int current, int total, const char* text) {
                  told.emplace_back(current, total, text);
                  return KsNN_Success;
              }),
              KsNN_Success)
        << mStore->GetErrorStr();
    EXPECT_EQ(mStore->GetErrorStr(), "");
    const std::string parsing = "Parsing transcriptions from KST";
    EXPECT_THAT(told, ElementsAre(std::tuple(0, 1000, "Parsing KST"), std::tuple(0, 20200, parsing),
                                  std::tuple(1, 20200, parsing), std::tuple(2, 20200, parsing),
                                  std::tuple(3, 20200, "Overwriting existing transcriptions in database"),
                                  std::tuple(53, 20200, "Writing KST transcriptions to database")));
    EXPECT_THAT(changes(), ElementsAre("POST /clips/_delete_by_query", "PUT /clips/_bulk"));
    EXPECT_EQ(bodyOf(mServer.requests().size() - 2),
              normalised(R"({"query": {"bool": {"should": [{"term": {"mediaGuid.keyword": "a"}}],
                                                "minimum_should_match": 1}}})"));
    const std::string text = R"("transcript": "Hé \"du\"", "language": "de", "speakerID": "1",
                                "wordStartsMS": [0, 10], "wordEndsMS": [9, 20])";
    const std::string clip = R"("model": "small", "clipName": "A", "audioTracks": "1", "clientApp": "E",
                                "schemaVersion": 2, "progressComplete": true)";
    EXPECT_THAT(
        created(),
        ElementsAre(
            normalised(R"({"mediaGuid": "a", "segment": 0, "projectGuidList": ["q", "p"], "projectList":
                [{"projectGuid": "q", "projectName": "Q"}, {"projectGuid": "p", "projectName": "P"}], )" +
                       text + "," + clip + "}"),
            normalised(R"({"mediaGuid": "a", "segment": 1, "projectGuidList": ["KST_Import_ProjectGuid"], )" +
                       text + "}"),
            normalised(R"({"mediaGuid": "b", "segment": 0, "projectGuidList": ["KST_Import_ProjectGuid"],
                "projectList": [{"projectGuid": "KST_Import_ProjectGuid",
                                 "projectName": "KST_Import_ProjectName"}], )" +
                       text + "," + clip + "}")));
}

TEST_F(Import, ADocumentThatTheServiceRefusesIsAFailure) {
    writePages({pageOf(document("b", 0, ""))});
    mBulkAnswer = R"({"errors": true, "items": [{"create": {"status": 400, "error": {"type": "t",
                      "reason": "no room"}}}]})";
    EXPECT_EQ(run(), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("no room"));
}

TEST_F(Import, TellsThatClipsCouldNotBeReplaced) {
    writePages({pageOf(document("a", 0, ""))});
    mDeletion.status = 503;
    EXPECT_EQ(run(), KsNN_Success);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("KsNNDatabase::HardDeleteEntries err: "));
}

TEST_F(Import, AHostMayEndItBeforeAnythingIsChanged) {
    writePages({pageOf(document("a", 0, ""))});
    for (int last = 1; last <= 3; ++last) {
        int calls = 0;
        EXPECT_EQ(
            run([&](int, int, const char*) { return ++calls < last ? KsNN_Success : KsNN_SetupFailed; }),
            KsNN_SetupFailed);
    }
    EXPECT_THAT(changes(), ElementsAre());
}

TEST_F(Import, ChangesNothingWhenAnythingInTheFileIsWrong) {
    const std::string good = document("a", 0, "") + "," + document("a", 1, "");
    const std::string transcript = R"("transcript": "Hé \"du\"")";
    const auto with = [&](const std::string& from, const std::string& to, int segment = 0) {
        std::string text = document("b", segment, "\"q\"");
        const std::size_t place = text.find(from);
        EXPECT_NE(place, std::string::npos) << from;
        return pageOf(good) + "," + pageOf(text.replace(place, from.size(), to));
    };
    const std::pair<std::string, std::string> cases[] = {
        {"{}", "hits"},
        {R"({"hits": {"hits": [7]}})", "objects"},
        {R"({"hits": {"hits": [{"_id": "x"}]}})", "_source"},
        {"nonsense", "Page 1"},
        {with("\"segment\": 0", "\"segment\": \"0\""), "\"segment\""},
        {with("\"segment\": 0", "\"segment\": 0.5"), "0.5"},
        {with("\"segment\": 0", "\"segment\": -1"), "-1"},
        {with("\"segment\": 0", "\"segment\": 99999999999"), "Page 2, document 1"},
        {with("\"b\"", "17"), "\"mediaGuid\" of a document is 17"},
        {with(transcript, R"("transcripts": "x")"), "transcript"},
        {with("[\"q\"]", "[3]"), "projectGuidList"},
        {with("[0, 10]", "[0, \"10\"]"), "wordStartsMS"},
        {with("[9, 20]", "[9]"), "KsNNDatabase::ImportDBContentsFromKSTerr: "},
        {with("\"schemaVersion\": 2", "\"schemaVersion\": 1"), "schemaVersion is mismatched, "},
        {with(", \"schemaVersion\": 2", ""), "schemaVersion is mismatched, "},
        {with("\"clipName\": \"A\", ", ""), "clipName"},
        {pageOf(good) + "," + pageOf(document("b", 0, "") + "," + document("a", 2, "")), "two places"},
        {with("\"q\"", std::string(200'000, '[')), "nested deeper"},
        {with(transcript, "\"transcript\": \"\xff\xfe\""), "Page 2"},
    };
    for (const auto& [text, complaint] : cases) {
        writePages({text});
        EXPECT_EQ(run(), KsNN_Error) << text.substr(0, 400);
        EXPECT_THAT(mStore->GetErrorStr(), AllOf(HasSubstr("KsNN Error: "), HasSubstr(complaint)))
            << text.substr(0, 400);
    }
    EXPECT_THAT(changes(), ElementsAre());
}

TEST_F(Import, ChangesNothingWhenTheFileCannotBeRead) {
    writePages({pageOf(document("a", 0, ""))});
    const std::string file = contents();
    const auto runOn = [&](const std::string& bytes) {
        std::ofstream(mFile.path(), std::ios::binary | std::ios::trunc) << bytes;
        return run();
    };
    EXPECT_EQ(runOn(""), KsNN_Error);
    EXPECT_EQ(runOn(file.substr(0, file.size() / 2)), KsNN_Error);
    EXPECT_EQ(runOn("[]"), KsNN_Error);
    // A block that was altered garbles itself and the next one.
    for (std::size_t i = 0; i + 4 < file.size(); i += 7) {
        std::string altered = file;
        altered[i] = altered[i] == 'A' ? 'B' : 'A';
        EXPECT_EQ(runOn(altered), KsNN_Error) << i;
    }
    std::ofstream(mFile.path(), std::ios::binary | std::ios::trunc) << file;
    usePassPhrase("another");
    EXPECT_EQ(run(), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("pass phrase"));
    for (const char* path : {"/nonexistent/x", "/"}) {
        EXPECT_EQ(mStore->ImportDBContentsFromKST(path, "p", "P", nullptr, false), KsNN_Error);
        EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("KsNNDatabase::ImportDBContentsFromKST err: "));
    }
    EXPECT_THAT(changes(), ElementsAre());
}

} // namespace
} // namespace kestrel_test
