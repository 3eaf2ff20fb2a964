// Stores of schema version 1 and the service's users, on a real index service.

#include "kestrelml/core/Credentials.h"
#include "tests/store/RealStore.h"
#include "tests/support/FaultProxy.h"

#include <gmock/gmock.h>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kNewIndex = "transcript_oai_small_multi_index_gtest_dbg";

/// Number of segments of a clip of the old store.
int segmentsOf(int clip) {
    return 1 + clip % 3;
}

std::string clipOf(int clip) {
    return "clip " + std::to_string(clip);
}

class Migration : public StoreOnEachEngine {
protected:
    Migration() { dropIndices(); }
    ~Migration() override { dropIndices(); }

    void dropIndices() {
        for (const char* index : {kDebugIndexVersion1, kNewIndex})
            mStore.DeleteIndex(index, false);
    }
    /// Fills the old index: every clip once for each project, the projects' texts different. Returns the
    /// number of documents.
    int writeOldStore(int clips, const std::vector<std::string>& projects) {
        KsNNDBEntryBase clipFields = someClip();
        std::ostringstream bulk;
        int documents = 0;
        for (int clip = 0; clip < clips; ++clip) {
            for (const std::string& project : projects) {
                for (int index = segmentsOf(clip); index-- > 0; ++documents) {
                    KsNNDBEntrySeg seg = someSegment(clipOf(clip), index, "text of " + project, "Unk");
                    seg.projectGuid = project;
                    clipFields.projectName = "Name of " + project;
                    clipFields.progressComplete = clip % 2 == 0;
                    bulk << "{\"create\": {}}\n";
                    documentVersion1(clipFields, seg)->stringify(bulk);
                    bulk << '\n';
                }
            }
        }
        EXPECT_EQ(mStore.CreateIndex(kDebugIndexVersion1, false), KsNN_Success);
        EXPECT_EQ(send("PUT", bulkPath(kDebugIndexVersion1), bulk.str()), 200U);
        return documents;
    }
    KsNN_ErrorCode migrate(KsNNProgressCallback progress = {}, int batchSize = 7) {
        return mStore.MigrateDatabaseVersion1to2(true, false, std::move(progress), batchSize);
    }
    int documentsIn(const std::string& index) {
        const std::string before = KsNNDatabase::getTranscriptIndex();
        KsNNDatabase::setTranscriptIndex(index);
        int count = -1;
        EXPECT_EQ(mStore.GetTotalSegmentCount(count, false), KsNN_Success);
        KsNNDatabase::setTranscriptIndex(before);
        return count;
    }
    bool exists(const std::string& index) {
        bool found = false;
        EXPECT_EQ(mStore.CheckIndex(found, index, false), KsNN_Success);
        return found;
    }
    void expectMigrated(int clip, const std::vector<std::string>& projects) {
        SCOPED_TRACE(clip);
        KsNNDB_STTClipEntry entry;
        ASSERT_EQ(mStore.GetDBContents(clipOf(clip), projects.back(), entry, false, 2), KsNN_Success)
            << mStore.GetErrorStr();
        EXPECT_EQ(entry.projectName, "Name of " + projects.back());
        EXPECT_EQ(entry.clipName, "A001");
        EXPECT_EQ(entry.progressComplete, clip % 2 == 0);
        std::vector<std::string> guids;
        for (const KsNNProject& project : entry.projects)
            guids.push_back(project.projectGuid);
        EXPECT_EQ(guids, projects);
        ASSERT_EQ(static_cast<int>(entry.segments.size()), segmentsOf(clip));
        for (std::size_t i = 0; i < entry.segments.size(); ++i) {
            const KsNNDBEntrySeg& seg = entry.segments[i];
            EXPECT_EQ(seg.segment, static_cast<int>(i));
            EXPECT_EQ(seg.transcript, "text of " + projects.front()) << "that of the first project";
            EXPECT_EQ(seg.speakerID, "N/A");
            EXPECT_EQ(seg.projectGuidList, projects);
            EXPECT_EQ(seg.wordStartsMS, someSegment("", seg.segment, seg.transcript).wordStartsMS);
        }
    }
};

KESTREL_ON_EACH_ENGINE(Migration);

TEST_P(Migration, OfNothingOnlySwitchesTheStore) {
    ASSERT_EQ(migrate(), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(KsNNDatabase::getTranscriptIndex(), kNewIndex);
    EXPECT_FALSE(exists(kNewIndex));
    ASSERT_EQ(mStore.MigrateDatabaseVersion1to2(false, false, {}, 2), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(KsNNDatabase::getTranscriptIndex(), "transcript_oai_small_multi_index_rel");
}

TEST_P(Migration, CancelledAtAnyDocumentLeavesTheOldStoreWhole) {
    const std::vector<std::string> projects = {"a", "b"};
    const int total = writeOldStore(5, projects);
    for (int last = 0; last < total; ++last) {
        SCOPED_TRACE(last);
        int calls = 0;
        const KsNN_ErrorCode code = migrate([&](int current, int of, const char* text) {
            EXPECT_EQ(std::tuple(current, of, std::string(text)), std::tuple(calls++, total, ""));
            return current == last ? KsNN_LockConflict : KsNN_Success;
        });
        EXPECT_EQ(code, KsNN_LockConflict);
        EXPECT_EQ(calls, last + 1);
        EXPECT_FALSE(exists(kNewIndex));
        EXPECT_EQ(KsNNDatabase::getTranscriptIndex(), kDebugIndexVersion1);
        EXPECT_EQ(documentsIn(kDebugIndexVersion1), total);
    }
    for (int again = 0; again < 2; ++again) {
        ASSERT_EQ(migrate(), KsNN_Success) << mStore.GetErrorStr();
        EXPECT_EQ(KsNNDatabase::getTranscriptIndex(), kNewIndex);
        EXPECT_EQ(documentsIn(kDebugIndexVersion1), 0);
        for (int clip = 0; clip < 5; ++clip)
            expectMigrated(clip, projects);
    }
}

TEST_P(Migration, LosesNothingWhenOneOfItsRequestsFails) {
    FaultProxy proxy(service());
    KsNNDatabase behindProxy(proxy.uri().c_str(), nullptr, nullptr, nullptr, false);
    const auto migrateBehindProxy = [&] {
        return behindProxy.MigrateDatabaseVersion1to2(true, false, {}, 7);
    };
    const int total = writeOldStore(3, {"a"});
    proxy.pass();
    ASSERT_EQ(migrateBehindProxy(), KsNN_Success) << behindProxy.GetErrorStr();
    const std::vector<std::string> requests = proxy.conversation();
    for (std::size_t position = 0; position < requests.size(); ++position) {
        for (const Fault& fault : faults()) {
            SCOPED_TRACE(std::string(fault.name) + " at " + requests[position]);
            dropIndices();
            writeOldStore(3, {"a"});
            proxy.failAt(position, fault);
            migrateBehindProxy();
            EXPECT_TRUE(documentsIn(kDebugIndexVersion1) == total || documentsIn(kNewIndex) == total);
            proxy.pass();
            EXPECT_EQ(migrateBehindProxy(), KsNN_Success) << behindProxy.GetErrorStr();
            EXPECT_EQ(documentsIn(kNewIndex), total);
            EXPECT_EQ(documentsIn(kDebugIndexVersion1), 0);
        }
    }
}

TEST_P(Migration, ThatCannotCountKeepsTheNameOfTheIndex) {
    KsNNDatabase unreachable("https://127.0.0.1:1/", nullptr, nullptr, nullptr, false);
    KsNNDatabase::setTranscriptIndex("index of the host");
    EXPECT_NE(unreachable.MigrateDatabaseVersion1to2(true, false, {}, 7), KsNN_Success);
    EXPECT_EQ(KsNNDatabase::getTranscriptIndex(), "index of the host");
}

TEST_P(Migration, OfAThousandClipsInThreeProjects) {
    constexpr int kClips = 1000;
    const std::vector<std::string> projects = {"a", "b", "c"};
    const int total = writeOldStore(kClips, projects);
    ASSERT_EQ(migrate({}, 500), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(documentsIn(kNewIndex), total / 3);
    for (int clip = 0; clip < kClips; clip += 37)
        expectMigrated(clip, projects);
}

TEST_P(Migration, LocksThatWereNeverReleasedStayBehind) {
    writeOldStore(1, {"a"});
    KsNNDatabase::setTranscriptIndex(kDebugIndexVersion1);
    ASSERT_EQ(mStore.LockEntry(clipOf(0), false), KsNN_Success);
    ASSERT_EQ(migrate(), KsNN_Success) << mStore.GetErrorStr();
    expectMigrated(0, {"a"});
    EXPECT_EQ(documentsIn(kNewIndex), 1);
}

TEST_P(Migration, ThatWasInterruptedWhileItEmptiedTheOldIndexIsCompleted) {
    writeOldStore(2, {"a"});
    ASSERT_EQ(migrate(), KsNN_Success);
    const int documents = writeOldStore(2, {"a"}); // as if they had never been deleted
    EXPECT_EQ(documentsIn(kDebugIndexVersion1), documents);
    ASSERT_EQ(migrate(), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(documentsIn(kDebugIndexVersion1), 0);
    EXPECT_EQ(documentsIn(kNewIndex), documents);
}

TEST_P(Migration, BrokenDocumentsAndPageSizesAreRefused) {
    const int documents = writeOldStore(2, {"a"});
    EXPECT_EQ(migrate({}, 0), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("The page size is 0"));
    EXPECT_EQ(migrate([](int, int, const char*) -> KsNN_ErrorCode { throw std::bad_alloc(); }), KsNN_Error);
    ASSERT_EQ(
        send("POST", documentsPath(kDebugIndexVersion1),
             R"({"mediaGuid": "z", "projectGuid": "p", "segment": 1, "transcript": "t", "language": "en",
                       "wordStartsMS": [1, 2], "wordEndsMS": [3]})"),
        201U);
    EXPECT_EQ(migrate(), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr(", KsNNDatabase::MigrateDatabaseVersion1to2 err: \n"));
    EXPECT_FALSE(exists(kNewIndex));
    EXPECT_EQ(documentsIn(kDebugIndexVersion1), documents + 1);
}

TEST_P(Migration, UsersSeeTheIndicesOfTheirSuffixOnly) {
    bool updated = true;
    KsNNDatabase::setTranscriptIndex("some_index");
    ASSERT_EQ(mStore.CreateIndex("some_index", false), KsNN_Success);
    ASSERT_EQ(mStore.UpdateDBUsersVersion1to2(updated, false), KsNN_Success);
    EXPECT_FALSE(updated);
    ASSERT_EQ(mStore.DeleteIndex("some_index", false), KsNN_Success);

    ASSERT_EQ(mStore.UpdateDBUsersVersion1to2(updated, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_TRUE(updated);
    const BasicCredentials debugUser = debugCredentials();
    IndexService::giveCredentialsToLibrary(debugUser.user, debugUser.password);
    for (const char* allowed : {"clips_dbg", kDebugIndexVersion1}) {
        EXPECT_EQ(send("POST", std::string(allowed) + "/_doc", "{}"), 201U);
        EXPECT_EQ(send("DELETE", allowed), 200U);
    }
    for (const char* forbidden : {"clips_rel", "transcript_index_rel", "_security/user/transcript_user_dbg"})
        EXPECT_EQ(send("GET", forbidden), 403U) << forbidden;
    useCredentials();
    KsNNDatabase::setTranscriptIndex("some_index");

    ASSERT_EQ(mStore.DowngradeDBUsersVersion2to1(false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(send("GET", "_security/user/transcript_user_dbg"), 404U);
    EXPECT_EQ(mStore.DowngradeDBUsersVersion2to1(false), KsNN_Error) << "nothing left to remove";
    EXPECT_THAT(mStore.GetErrorStr(),
                HasSubstr(", KsNNDatabase::DowngradeDBUsersVersion2to1 HTTPResponse err: \n"));
}

} // namespace
} // namespace kestrel_test
