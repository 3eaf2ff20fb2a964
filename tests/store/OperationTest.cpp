// Each operation of the store: which requests it makes in which order, and which result follows from which
// answer.

#include "tests/store/ScriptedStore.h"

namespace kestrel_test {
namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

using Operation = std::function<KsNN_ErrorCode(KsNNDatabase&)>;

/// The operations under their names, with arguments that do not matter to the case.
namespace operation {

KsNNDBEntryBase base() {
    KsNNDBEntryBase result;
    result.projectName = "Film";
    return result;
}

KsNNDBEntrySeg segment(int index) {
    KsNNDBEntrySeg seg;
    seg.segment = index;
    seg.mediaGuid = "m";
    seg.projectGuid = "p";
    return seg;
}

Operation write(int index) {
    return [=](KsNNDatabase& store) { return store.WriteToDB(base(), segment(index), false); };
}
Operation writeVersion1(int index) {
    return [=](KsNNDatabase& store) { return store.WriteToDBVer1(base(), segment(index), false); };
}
KsNN_ErrorCode probe(KsNNDatabase& store) {
    return store.testDefault(false);
}
KsNN_ErrorCode checkIndex(KsNNDatabase& store) {
    bool exists = true;
    return store.CheckIndex(exists, "i", false);
}
KsNN_ErrorCode createIndex(KsNNDatabase& store) {
    return store.CreateIndex("i", false);
}
KsNN_ErrorCode deleteIndex(KsNNDatabase& store) {
    return store.DeleteIndex("i", false);
}
KsNN_ErrorCode lock(KsNNDatabase& store) {
    return store.LockEntry("m", false);
}
KsNN_ErrorCode unlock(KsNNDatabase& store) {
    return store.UnlockEntry("m", false);
}
KsNN_ErrorCode unlockAll(KsNNDatabase& store) {
    return store.UnlockAllEntries(false);
}
KsNN_ErrorCode lockState(KsNNDatabase& store) {
    bool locked = true;
    return store.GetLockState("m", locked, false);
}
KsNN_ErrorCode findLocked(KsNNDatabase& store) {
    std::vector<std::string> found;
    return store.FindAllLockedMediaGuids(found, false);
}
Operation countSegments(int version) {
    return [=](KsNNDatabase& store) {
        int result = 0;
        return store.GetSegmentCount("m", "p", result, false, version);
    };
}
KsNN_ErrorCode countAll(KsNNDatabase& store) {
    int result = 0;
    return store.GetTotalSegmentCount(result, false);
}
KsNN_ErrorCode getProgress(KsNNDatabase& store) {
    bool complete = true;
    return store.GetProgressComplete("m", "p", complete, false, 2);
}
KsNN_ErrorCode setProgress(KsNNDatabase& store) {
    return store.SetProgressComplete("m", false, 2, "p");
}
Operation readClip(int version) {
    return [=](KsNNDatabase& store) {
        KsNNDB_STTClipEntry entry;
        return store.GetDBContents("m", "p", entry, false, version);
    };
}
KsNN_ErrorCode readRange(KsNNDatabase& store) {
    KsNNDB_STTClipEntry entry;
    return store.GetDBContentsRange("m", "p", 5, 4, entry, false);
}
KsNN_ErrorCode search(KsNNDatabase& store) {
    std::vector<KsNNSearchResults> results;
    return store.Search("phrase", "p", 0.5F, results, 0, false);
}

} // namespace operation

const char* const kCheck = "GET /clips";
const char* const kRefresh = "POST /clips/_refresh";
const char* const kCount = "GET /clips/_count";
const Reply kCreated = Reply::json(201, R"({"result": "created"})");
const Reply kZero = hits(R"({"_id": "z/1", "_source": {"progressComplete": true}})");

struct Case {
    const char* name;
    Operation run;
    std::vector<Reply> script;
    std::vector<std::string> conversation;
    KsNN_ErrorCode code = KsNN_Success;
    /// Message of the report; null for none.
    const char* report = nullptr;
};

/// Conversations of a refresh, and of a count with its own refresh.
std::vector<std::string> refreshed(std::vector<std::string> rest) {
    rest.insert(rest.begin(), {kCheck, kRefresh});
    return rest;
}
std::vector<std::string> counted(std::vector<std::string> rest) {
    rest.insert(rest.begin(), {kCheck, kRefresh, kCount});
    return rest;
}
std::vector<Reply> refreshed(std::vector<Reply> rest) {
    rest.insert(rest.begin(), {ok(), ok()});
    return rest;
}
std::vector<Reply> counted(int n, std::vector<Reply> rest) {
    rest.insert(rest.begin(), {ok(), ok(), count(n)});
    return rest;
}

const Case kCases[] = {
    {"probe", operation::probe, {ok(R"({"tagline": "You Know, for Search"})")}, {"GET /"}},
    {"probeOtherTagline",
     operation::probe,
     {ok(R"({"tagline": "You know, for search"})")},
     {"GET /"},
     KsNN_Error,
     "KsNNDatabase::testDefault err: "},
    {"probeNoTagline", operation::probe, {ok()}, {"GET /"}, KsNN_Error, "KsNNDatabase::testDefault err: "},
    {"probeRefused",
     operation::probe,
     {Reply::json(401, "{}")},
     {"GET /"},
     KsNN_Error,
     "KsNNDatabase::testDefault err: "},

    {"checkIndexMissing", operation::checkIndex, {missing()}, {"GET /i"}},
    {"checkIndexFails",
     operation::checkIndex,
     {Reply::json(500, "{}")},
     {"GET /i"},
     KsNN_Error,
     "KsNNDatabase::CheckIndex err: "},
    {"createIndexThatExists", operation::createIndex, {ok(), ok()}, {"GET /i", "GET /i"}},
    {"createIndex", operation::createIndex, {missing(), ok(), ok()}, {"GET /i", "PUT /i", "GET /i"}},
    {"createIndexInVain",
     operation::createIndex,
     {missing(), ok(), missing()},
     {"GET /i", "PUT /i", "GET /i"},
     KsNN_Error},
    {"createIndexRefused",
     operation::createIndex,
     {missing(), Reply::json(403, "{}")},
     {"GET /i", "PUT /i"},
     KsNN_Error,
     "KsNNDatabase::CreateIndex err: "},
    {"deleteIndex",
     operation::deleteIndex,
     {ok(), ok(), ok(), ok(), missing()},
     {kCheck, kRefresh, "GET /i", "DELETE /i", "GET /i"}},
    {"deleteIndexMissing", operation::deleteIndex, {missing(), missing()}, {kCheck, "GET /i"}},
    {"deleteIndexInVain",
     operation::deleteIndex,
     {missing(), ok(), ok(), ok()},
     {kCheck, "GET /i", "DELETE /i", "GET /i"},
     KsNN_Error,
     "KsNNDatabase::DeleteIndex err: Deletion not successful. Index still exists."},
    {"deleteIndexRefused",
     operation::deleteIndex,
     {missing(), ok(), Reply::json(403, "{}")},
     {kCheck, "GET /i", "DELETE /i"},
     KsNN_Error,
     "KsNNDatabase::DeleteIndex err: "},
    {"deleteIndexRefreshFails",
     operation::deleteIndex,
     {ok(), Reply::json(503, "{}")},
     {kCheck, kRefresh},
     KsNN_Error,
     "KsNNDatabase::Refresh err: "},

    {"lock", operation::lock, {ok(), kCreated}, {kCheck, "POST /clips/_doc/m?op_type=create"}},
    {"lockCreatesTheIndex",
     operation::lock,
     {missing(), missing(), ok(), ok(), kCreated},
     {kCheck, kCheck, "PUT /clips", kCheck, "POST /clips/_doc/m?op_type=create"}},
    {"lockIndexInVain",
     operation::lock,
     {missing(), missing(), ok(), missing()},
     {kCheck, kCheck, "PUT /clips", kCheck},
     KsNN_Error},
    {"lockConflict",
     operation::lock,
     {ok(), Reply::json(409, "{}")},
     {kCheck, "POST /clips/_doc/m?op_type=create"},
     KsNN_LockConflict},
    {"lockRefused",
     operation::lock,
     {ok(), Reply::json(400, "{}")},
     {kCheck, "POST /clips/_doc/m?op_type=create"},
     KsNN_Error,
     "KsNNDatabase::LockEntry err: "},
    {"lockUpdated",
     operation::lock,
     {ok(), ok(R"({"result": "updated"})")},
     {kCheck, "POST /clips/_doc/m?op_type=create"},
     KsNN_Error,
     "KsNNDatabase::LockEntry err: "},
    {"lockNoResult",
     operation::lock,
     {ok(), ok()},
     {kCheck, "POST /clips/_doc/m?op_type=create"},
     KsNN_Error,
     "KsNNDatabase::LockEntry err: "},
    {"lockWithoutIdentifier",
     [](KsNNDatabase& store) { return store.LockEntry("", false); },
     {ok()},
     {kCheck},
     KsNN_Error,
     "KsNNDatabase::LockEntry err: The media identifier is empty."},
    {"lockState", operation::lockState, refreshed({ok(R"({"found": true})")}),
     refreshed({"GET /clips/_doc/m"})},
    {"lockStateUnlocked", operation::lockState, refreshed({missing()}), refreshed({"GET /clips/_doc/m"})},
    {"lockStateNotFound", operation::lockState, refreshed({ok(R"({"found": false})")}),
     refreshed({"GET /clips/_doc/m"}), KsNN_Error, "KsNNDatabase::GetLockState err: "},
    {"lockStateNoIndex",
     operation::lockState,
     {missing()},
     {kCheck},
     KsNN_Error,
     "KsNNDatabase::GetLockState err: Index doesn't exist."},
    {"unlock", operation::unlock, refreshed({ok(R"({"result": "deleted"})")}),
     refreshed({"DELETE /clips/_doc/m"})},
    {"unlockUnlocked", operation::unlock, refreshed({missing()}), refreshed({"DELETE /clips/_doc/m"}),
     KsNN_LockConflict},
    {"unlockNoop", operation::unlock, refreshed({ok(R"({"result": "noop"})")}),
     refreshed({"DELETE /clips/_doc/m"}), KsNN_Error, "KsNNDatabase::UnlockEntry err: "},
    {"unlockNoIndex",
     operation::unlock,
     {missing()},
     {kCheck},
     KsNN_Error,
     "KsNNDatabase::UnlockEntry err: Index doesn't exist"},
    {"findLockedCreatesTheIndex",
     operation::findLocked,
     {missing(), missing(), ok(), ok(), hits("")},
     {kCheck, kCheck, "PUT /clips", kCheck, "GET /clips/_search/"}},
    {"findLockedFails", operation::findLocked, refreshed({Reply::json(500, "{}")}),
     refreshed({"GET /clips/_search/"}), KsNN_Error, "KsNNDatabase::FindAllLockedMediaGuids err: "},
    {"unlockAllGoesOnAfterAConflict",
     operation::unlockAll,
     {ok(), ok(), hits(R"({"_id": "a"}, {"_id": "b/c"})"), ok(), ok(), missing(), ok(), ok(),
      ok(R"({"result": "deleted"})")},
     {kCheck, kRefresh, "GET /clips/_search/", kCheck, kRefresh, "DELETE /clips/_doc/a", kCheck, kRefresh,
      "DELETE /clips/_doc/b%2Fc"}},
    {"unlockAllStopsAtAFailure",
     operation::unlockAll,
     {ok(), ok(), hits(R"({"_id": "a"}, {"_id": "b"})"), ok(), ok(), Reply::json(500, "{}")},
     {kCheck, kRefresh, "GET /clips/_search/", kCheck, kRefresh, "DELETE /clips/_doc/a"},
     KsNN_Error,
     "KsNNDatabase::UnlockEntry err: "},

    {"countNoIndex", operation::countSegments(2), {missing()}, {kCheck}},
    {"countBadVersion",
     operation::countSegments(3),
     {ok(), ok()},
     {kCheck, kRefresh},
     KsNN_Error,
     "KsNNDatabase::GetSegmentCount err: version is invalid."},
    {"countFails", operation::countSegments(1), refreshed({Reply::json(500, "{}")}), counted({}), KsNN_Error,
     "KsNNDatabase::GetQueryResultCount err: "},
    {"countAll", operation::countAll, refreshed({count(13)}), counted({})},
    {"getProgress",
     operation::getProgress,
     {ok(), ok(), ok(), ok(), count(2), kZero},
     refreshed(counted({"POST /clips/_search"}))},
    {"getProgressNoSegments",
     operation::getProgress,
     {ok(), ok(), ok(), ok(), count(0)},
     refreshed(counted({}))},
    {"getProgressTwoZeroSegments",
     operation::getProgress,
     {ok(), ok(), ok(), ok(), count(2), hits(R"({"_id": "a"}, {"_id": "b"})")},
     refreshed(counted({"POST /clips/_search"})),
     KsNN_Error},
    {"getProgressFails",
     operation::getProgress,
     {ok(), ok(), ok(), ok(), count(2), Reply::json(500, "{}")},
     refreshed(counted({"POST /clips/_search"})),
     KsNN_Error},
    {"setProgress",
     operation::setProgress,
     {ok(), ok(), ok(), ok(), count(2), kZero, ok()},
     refreshed(counted({"POST /clips/_search", "POST /clips/_update/z%2F1"}))},
    {"setProgressNoSegments",
     operation::setProgress,
     {ok(), ok(), ok(), ok(), count(0)},
     refreshed(counted({}))},
    {"setProgressNoZeroSegment",
     operation::setProgress,
     {ok(), ok(), ok(), ok(), count(2), hits("")},
     refreshed(counted({"POST /clips/_search"})),
     KsNN_Error,
     "KsNNDatabase::SetProgressComplete err: "},
    {"setProgressUpdateFails",
     operation::setProgress,
     {ok(), ok(), ok(), ok(), count(2), kZero, Reply::json(404, "{}")},
     refreshed(counted({"POST /clips/_search", "POST /clips/_update/z%2F1"})),
     KsNN_Error,
     "KsNNDatabase::SetProgressComplete err: "},
    {"setProgressCountFails",
     operation::setProgress,
     {ok(), ok(), ok(), ok(), Reply::html()},
     refreshed(counted({})),
     KsNN_Error,
     "KsNNDatabase::SetProgressComplete err: "},

    {"writeZeroWithoutLock", operation::write(0), refreshed({missing()}), refreshed({"GET /clips/_doc/m"}),
     KsNN_Error, "KsNNDatabase::WriteToDB: Missing lock."},
    {"writeStoredSegment", operation::write(3), counted(5, {}), counted({})},
    {"writeNewSegment", operation::write(1), counted(1, {ok(), ok(), count(0), ok(), kCreated}),
     counted(counted({kCheck, "POST /clips/_doc"}))},
    {"writeToCompleteClip", operation::write(1),
     counted(1, {ok(), ok(), count(1), ok(), ok(), ok(), ok(), count(1), kZero}),
     counted(counted(refreshed(counted({"POST /clips/_search"})))), KsNN_Error},
    {"writeFirstCountPassesItsCode", operation::write(1), refreshed({Reply::html()}), counted({}),
     KsNN_Exception, ", "},
    {"writeSecondCountBecomes1", operation::write(1), counted(1, {ok(), ok(), Reply::html()}),
     counted(counted({})), KsNN_Error, ", "},
    {"writeIndexIsGone",
     operation::write(1),
     {missing(), missing(), missing(), missing(), ok(), ok(), kCreated},
     {kCheck, kCheck, kCheck, kCheck, "PUT /clips", kCheck, "POST /clips/_doc"}},
    {"writeRefused", operation::write(1), counted(1, {ok(), ok(), count(0), ok(), Reply::json(429, "{}")}),
     counted(counted({kCheck, "POST /clips/_doc"})), KsNN_Error, "KsNNDatabase::WriteToDB err: "},
    {"writeNotCreated", operation::write(1),
     counted(1, {ok(), ok(), count(0), ok(), ok(R"({"result": "noop"})")}),
     counted(counted({kCheck, "POST /clips/_doc"})), KsNN_Error, "KsNNDatabase::WriteToDB err: "},
    {"writeVersion1", operation::writeVersion1(0), counted(0, {kCreated}), counted({"POST /clips/_doc"})},
    {"writeVersion1Stored", operation::writeVersion1(0), counted(1, {}), counted({})},
    {"writeVersion1Refused", operation::writeVersion1(1), counted(0, {Reply::json(400, "{}")}),
     counted({"POST /clips/_doc"}), KsNN_Error, "KsNNDatabase::WriteToDBVer1 err: "},

    {"readNoIndex", operation::readClip(3), {missing()}, {kCheck}},
    {"readBadVersion",
     operation::readClip(3),
     {ok(), ok()},
     {kCheck, kRefresh},
     KsNN_Error,
     "KsNNDatabase::getDBContents err: version is invalid."},
    {"readEmptyClip", operation::readClip(2), refreshed({hits("")}), refreshed({"GET /clips/_search"})},
    {"readFails", operation::readClip(2), refreshed({Reply::json(500, "{}")}),
     refreshed({"GET /clips/_search"}), KsNN_Error, "KsNNDatabase::GetDBContents err: "},
    {"readRangeBackwards",
     operation::readRange,
     {},
     {},
     KsNN_Error,
     "KsNNDatabase::GetDBContentsRange: endMS < startMS"},
    {"searchNoIndex", operation::search, {missing()}, {kCheck}},
    {"searchFails", operation::search, refreshed({Reply::json(400, "{}")}), refreshed({"GET /clips/_search"}),
     KsNN_Error, "KsNNDatabase::Search err: "},
};

TEST_F(ScriptedStore, OperationsAskInOrderAndJudgeTheAnswers) {
    for (const Case& expected : kCases) {
        SCOPED_TRACE(expected.name);
        mServer.reset();
        mServer.script(expected.script);
        mStore->SetErrorStr("");
        EXPECT_EQ(expected.run(*mStore), expected.code);
        EXPECT_THAT(mServer.conversation(), ElementsAreArray(expected.conversation));
        EXPECT_EQ(mServer.unused(), 0U);
        if (expected.report == nullptr) {
            EXPECT_THAT(mStore->GetErrorStr(), IsEmpty());
        } else {
            EXPECT_THAT(mStore->GetErrorStr(), testing::MatchesRegex("KsNN Error: [0-9]+, .*"));
            EXPECT_THAT(mStore->GetErrorStr(), testing::EndsWith(std::string(expected.report) + "\n"));
        }
    }
}

class FaultyService : public ScriptedStore {
protected:
    /// Answers the first `healthy` requests well and all others with `fault`.
    void breakAfter(std::size_t healthy, const Reply& fault) {
        mServer.otherwise([=, seen = std::size_t{0}](const RecordedRequest&) mutable {
            return seen++ < healthy ? ok(R"({"count": 1, "found": true})") : fault;
        });
    }
};

// Whatever the service does, at whichever step: a code, a report, no crash, no second try.
TEST_F(FaultyService, EveryOperationFailsCleanlyAtEveryStep) {
    const Operation operations[] = {
        operation::probe,       operation::checkIndex,  operation::createIndex, operation::deleteIndex,
        operation::lock,        operation::unlock,      operation::unlockAll,   operation::lockState,
        operation::findLocked,  operation::countAll,    operation::write(0),    operation::writeVersion1(2),
        operation::getProgress, operation::setProgress, operation::readClip(1), operation::readClip(2),
        operation::search};
    const Reply faults[] = {Reply::html(), Reply::empty(), Reply::cutConnection(), Reply::cutAnswer()};
    for (std::size_t o = 0; o < std::size(operations); ++o) {
        for (std::size_t healthy = 0; healthy < 3; ++healthy) {
            mServer.reset();
            breakAfter(healthy, faults[(o + healthy) % std::size(faults)]);
            mStore->ResetErrorStr();
            const KsNN_ErrorCode code = operations[o](*mStore);
            const bool reachedTheFault = mServer.requests().size() > healthy;
            if (!reachedTheFault) continue;
            EXPECT_THAT(code, testing::AnyOf(KsNN_Error, KsNN_Exception)) << o << " after " << healthy;
            EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("KsNN Error: ")) << o << " after " << healthy;
            EXPECT_EQ(mServer.requests().size(), healthy + 1) << o;
        }
    }
}

TEST_F(ScriptedStore, ASuccessClearsTheReportOfAnEarlierFailure) {
    mServer.script({Reply::json(500, "{}"), missing()});
    EXPECT_EQ(operation::checkIndex(*mStore), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), testing::Not(IsEmpty()));
    EXPECT_EQ(operation::checkIndex(*mStore), KsNN_Success);
    EXPECT_THAT(mStore->GetErrorStr(), IsEmpty());
}

TEST_F(ScriptedStore, NoIdentifierReachesAnotherDocument) {
    const std::pair<std::string, std::string> identifiers[] = {
        {"123.1234567890.0987654321", "123.1234567890.0987654321"},
        {"a/../b?x=1#y", "a%2F..%2Fb%3Fx%3D1%23y"},
        {"50%25 \"'", "50%2525%20%22%27"},
        {"клип", "%D0%BA%D0%BB%D0%B8%D0%BF"},
        {std::string(10000, 'x'), std::string(10000, 'x')},
        {"\xff\xfe\n", "%FF%FE%0A"},
    };
    for (const auto& [identifier, segment] : identifiers) {
        mServer.reset();
        mServer.script({ok(), kCreated});
        EXPECT_EQ(mStore->LockEntry(identifier, false), KsNN_Success);
        EXPECT_EQ(mServer.conversation().back(), "POST /clips/_doc/" + segment + "?op_type=create");
    }
}

} // namespace
} // namespace kestrel_test
