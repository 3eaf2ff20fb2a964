// Every operation on a real service that fails at each of the operation's requests in turn.

#include "tests/store/FaultyStore.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

namespace kestrel_test {
namespace {

TEST_F(Faults, Indices) {
    expectCleanFailures("testDefault");
    expectCleanFailures("CheckIndex any");
    expectCleanFailures("CreateIndex @other");
    // Whether the index is gone is asked once more, and no answer is taken for yes.
    expectCleanFailures({.call = "DeleteIndex @index", .passesOver = ""});
}

TEST_F(Faults, LocksAndWriting) {
    expectCleanFailures({.call = "LockEntry free", .whenDoneAlready = KsNN_LockConflict});
    expectCleanFailures({.call = "UnlockEntry own", .whenDoneAlready = KsNN_LockConflict});
    for (const char* call : {"GetLockState own", "FindAllLockedMediaGuids", "UnlockAllEntries",
                             "SetProgressComplete \"under way\" 2"})
        expectCleanFailures(call);
    expectCleanFailures({.call = "WriteToDB new 0", .mayBeSilent = true});
    // It counts in version 2 and so never finds what it wrote.
    expectCleanFailures({.call = "WriteToDBVer1 new 0", .isRepeatable = false});
}

TEST_F(Faults, Reading) {
    for (const char* call :
         {"GetSegmentCount own p 2", "GetTotalSegmentCount", "GetDBContentsRange own p 0 100 text",
          "GetWholeClip own p text", "Search words p 0", "FindPhrase words p", "GetAllEntries",
          "GetAllMediaGuids ALL 1", "FindClips contents", "GetAllInprogressEntries"})
        expectCleanFailures(call);
    expectCleanFailures({.call = "GetProgressComplete own p 2", .mayBeSilent = true});
}

TEST_F(Faults, ProjectsAndDeletion) {
    // Appended again, it is listed twice.
    expectCleanFailures({.call = "AppendProjectToEntry own r Third -1", .isRepeatable = false});
    // Once the clip is a member, its speakers are not looked after.
    expectCleanFailures({.call = "AddNewProjectToProjectList own r Third", .isRepeatable = false});
    for (const char* call : {"RemoveProjectFromEntry shared q", "DeleteEntry ALL p 2", "DeleteEntry own p 2",
                             "HardDeleteEntries own shared"})
        expectCleanFailures(call);
    // A service that does not answer the probe may be starting, and is asked again.
    expectCleanFailures({.call = "DeleteAllInProgressEntries", .passesOver = ""});
}

TEST_F(Faults, Speakers) {
    // Created again after a lost answer, it is there twice.
    expectCleanFailures({.call = "SpeakerCreateNew bob p", .isRepeatable = false});
    for (const char* call :
         {"SpeakerGetList p", "GetSpeakerName ann", "GetAllSpeakersInSpeakerIndex",
          "GetAllSpeakersInProject p", "createSpeakerAs traveller", "ShareSpeakers own r Third",
          "FindReferencesOfSpeaker ann p", "SpeakerRenameBasedOnSpeakerGuid bob Robert"})
        expectCleanFailures(call);
    // A speaker that is gone cannot be deleted again.
    expectCleanFailures({.call = "SpeakerDelete p bob", .whenDoneAlready = KsNN_Error});
}

TEST_F(Faults, SpeakersOfSegments) {
    for (const char* call : {"SpeakerSetSegName own p bob 0", "CorrectSpeakerID own p S7 1",
                             "SpeakerRenameAllSegments own p bob 0", "ClearSpeakerIDForEntireClip own ann",
                             "ClearSpeakerIDForEntireProject p ann", "ClearSpeakerIDPerSeg own 1"})
        expectCleanFailures(call);
    expectCleanFailures({.call = "MergeSpeakersInProject p ann bob bob", .whenDoneAlready = KsNN_Error});
}

TEST_F(Faults, Users) {
    mUsers = Users::Absent;
    restore();
    expectCleanFailures({"UpdateDBUsersVersion1to2", [this](KsNNDatabase& store) {
                             KsNNDatabase::setTranscriptIndex("none");
                             bool updated = false;
                             const KsNN_ErrorCode code = store.UpdateDBUsersVersion1to2(updated, false);
                             KsNNDatabase::setTranscriptIndex(mIndex);
                             return code;
                         }});
    mUsers = Users::Present;
    restore();
    // It stops at the first role that is not there, which may be the one that it removed before.
    expectCleanFailures({.call = "DowngradeDBUsersVersion2to1", .isRepeatable = false});
}

TEST_F(Faults, Exchange) {
    const Poco::TemporaryFile file;
    const Poco::TemporaryFile failed;
    const auto exportTo = [](KsNNDatabase& store, const std::string& path) {
        int counter = 0;
        return store.ExportDBContentsToKST({"own", "shared"}, "p", {}, path, counter, nullptr, false, false,
                                           2);
    };
    ASSERT_EQ(mStore.CorrectSpeakerID("own", "p", "S7", 1, false), KsNN_Success) << mStore.GetErrorStr();
    ASSERT_EQ(exportTo(mStore, file.path()), KsNN_Success) << mStore.GetErrorStr();
    restore(); // to something else than what is in the file

    expectCleanFailures({"ExportDBContentsToKST", [&](KsNNDatabase& store) {
                             const KsNN_ErrorCode code = exportTo(store, failed.path());
                             EXPECT_EQ(Poco::File(failed.path()).exists(), code == KsNN_Success);
                             if (code == KsNN_Success) Poco::File(failed.path()).remove();
                             return code;
                         }});
    // Clips that could not be deleted are in the store twice, which the error text says. Once they are
    // deleted, nothing knows any more of which other projects they were.
    expectCleanFailures({.call = "ImportDBContentsFromKST",
                         .run =
                             [&](KsNNDatabase& store) {
                                 return store.ImportDBContentsFromKST(file.path(), "p", "Film", nullptr,
                                                                      false);
                             },
                         .isRepeatable = false,
                         .passesOver = "_delete_by_query"});
    std::string path = failed.path();
    KsNNDB_STTClipEntry entry;
    ASSERT_EQ(mStore.GetDBContents("own", "p", entry, false, 2), KsNN_Success);
    std::vector<KsNNTC> timecodes(entry.segments.size());
    expectCleanFailures({"DumpDBContentsToFile", [&](KsNNDatabase& store) {
                             return store.DumpDBContentsToFile(entry, path, KsNNExportText, timecodes, false,
                                                               "");
                         }});
}

} // namespace
} // namespace kestrel_test
