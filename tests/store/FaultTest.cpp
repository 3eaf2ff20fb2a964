// Every operation on a real service that fails at each of the operation's requests in turn.

#include "tests/store/FaultyStore.h"

#include <Poco/File.h>
#include <Poco/TemporaryFile.h>

namespace kestrel_test {
namespace {

KsNNDBEntrySeg newSegment() {
    KsNNDBEntrySeg seg;
    seg.segment = 0;
    seg.mediaGuid = "new";
    seg.projectGuid = "p";
    return seg;
}

TEST_F(Faults, Indices) {
    for (const Subject& subject : {
             Subject{"testDefault", [](KsNNDatabase& store) { return store.testDefault(false); }},
             Subject{"CheckIndex",
                     [](KsNNDatabase& store) {
                         bool exists = false;
                         return store.CheckIndex(exists, "any", false);
                     }},
             Subject{"CreateIndex",
                     [this](KsNNDatabase& store) { return store.CreateIndex(mOtherIndex, false); }},
             // Whether the index is gone is asked once more, and no answer is taken for yes.
             Subject{.name = "DeleteIndex",
             .run = [this](KsNNDatabase& store) { return store.DeleteIndex(mIndex, false); },
             .passesOver = ""},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
}

TEST_F(Faults, LocksAndWriting) {
    for (const Subject& subject : {
             Subject{.name = "LockEntry",
            .run = [](KsNNDatabase& store) { return store.LockEntry("free", false); },
            .whenDoneAlready = KsNN_LockConflict},
             Subject{.name = "UnlockEntry",
             .run = [](KsNNDatabase& store) { return store.UnlockEntry("own", false); },
             .whenDoneAlready = KsNN_LockConflict},
             Subject{"GetLockState",
                     [](KsNNDatabase& store) {
                         bool locked = false;
                         return store.GetLockState("own", locked, false);
                     }},
             Subject{"FindAllLockedMediaGuids",
                     [](KsNNDatabase& store) {
                         std::vector<std::string> found;
                         return store.FindAllLockedMediaGuids(found, false);
                     }},
             Subject{"UnlockAllEntries", [](KsNNDatabase& store) { return store.UnlockAllEntries(false); }},
             Subject{.name = "WriteToDB",
             .run = [](KsNNDatabase& store) { return store.WriteToDB({}, newSegment(), false); },
             .mayBeSilent = true},
             // It counts in version 2 and so never finds what it wrote.
             Subject{.name = "WriteToDBVer1",
             .run = [](KsNNDatabase& store) { return store.WriteToDBVer1({}, newSegment(), false); },
             .isRepeatable = false},
             Subject{.name = "SetProgressComplete",
             .run = [](KsNNDatabase& store) { return store.SetProgressComplete("under way", false, 2, ""); }},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
}

TEST_F(Faults, Reading) {
    for (const Subject& subject : {
             Subject{"GetSegmentCount",
                     [](KsNNDatabase& store) {
                         int count = 0;
                         return store.GetSegmentCount("own", "p", count, false, 2);
                     }},
             Subject{"GetTotalSegmentCount",
                     [](KsNNDatabase& store) {
                         int count = 0;
                         return store.GetTotalSegmentCount(count, false);
                     }},
             Subject{.name = "GetProgressComplete",
             .run =
                         [](KsNNDatabase& store) {
                             bool complete = false;
                             return store.GetProgressComplete("own", "p", complete, false, 2);
                         },
             .mayBeSilent = true},
             Subject{"GetDBContentsRange",
                     [](KsNNDatabase& store) {
                         KsNNDB_STTClipEntry entry;
                         return store.GetDBContentsRange("own", "p", 0, 100, entry, false);
                     }},
             Subject{"Search",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNSearchResults> results;
                         return store.Search("words", "p", 0.5F, results, 0, false);
                     }},
             Subject{"FindPhrase",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNPhraseHit> hits;
                         KsNNPhraseQuery query;
                         query.text = "words";
                         query.projectGuid = "p";
                         return store.FindPhrase(query, hits, false);
                     }},
             Subject{"GetAllEntries",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNProject> projects;
                         return store.GetAllEntries(projects, false);
                     }},
             Subject{"GetAllMediaGuids",
                     [](KsNNDatabase& store) {
                         std::vector<std::string> clips;
                         return store.GetAllMediaGuids("ALL", clips, false, 1);
                     }},
             Subject{"FindClips",
                     [](KsNNDatabase& store) {
                         KsNNClipQuery query;
                         query.withContents = true;
                         std::vector<KsNNClipSummary> clips;
                         return store.FindClips(query, clips, false);
                     }},
             Subject{"GetAllInprogressEntries",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNSearchResults> results;
                         return store.GetAllInprogressEntries(results, false);
                     }},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
}

TEST_F(Faults, ProjectsAndDeletion) {
    for (const Subject& subject : {
             // Appended again, it is listed twice.
             Subject{.name = "AppendProjectToEntry",
             .run =
                         [](KsNNDatabase& store) {
                             return store.AppendProjectToEntry("own", "r", "Third", -1, false);
                         },
             .isRepeatable = false},
             // Once the clip is a member, its speakers are not looked after.
             Subject{.name = "AddNewProjectToProjectList",
             .run =
                         [](KsNNDatabase& store) {
                             return store.AddNewProjectToProjectList("own", "r", "Third", false);
                         },
             .isRepeatable = false},
             Subject{"RemoveProjectFromEntry",
                     [](KsNNDatabase& store) { return store.RemoveProjectFromEntry("shared", "q", false); }},
             Subject{"DeleteEntry of a project",
                     [](KsNNDatabase& store) { return store.DeleteEntry("ALL", "p", false, 2, nullptr); }},
             Subject{"DeleteEntry of a clip",
                     [](KsNNDatabase& store) { return store.DeleteEntry("own", "p", false, 2, nullptr); }},
             Subject{"HardDeleteEntries",
                     [](KsNNDatabase& store) {
                         return store.HardDeleteEntries({"own", "shared"}, false);
                     }},
             // A service that does not answer the probe may be starting, and is asked again.
             Subject{.name = "DeleteAllInProgressEntries",
             .run = [](KsNNDatabase& store) { return store.DeleteAllInProgressEntries(false); },
             .passesOver = ""},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
}

KsNNSpeakerKV bob() {
    KsNNSpeakerKV speaker;
    speaker.speakerGuid = "bob";
    speaker.speakerName = "bob";
    speaker.projectGuid = "p";
    speaker.projectName = "Film";
    return speaker;
}

TEST_F(Faults, Speakers) {
    for (const Subject& subject : {
             // Created again after a lost answer, it is there twice.
             Subject{.name = "SpeakerCreateNew",
             .run =
                         [](KsNNDatabase& store) {
                             KsNNSpeakerKV speaker = bob();
                             return store.SpeakerCreateNew(speaker, false);
                         },
             .isRepeatable = false},
             Subject{"SpeakerGetList",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNSpeakerKV> speakers;
                         return store.SpeakerGetList("p", speakers, false);
                     }},
             Subject{"GetSpeakerName",
                     [](KsNNDatabase& store) {
                         std::string name;
                         return store.GetSpeakerName("ann", name, false);
                     }},
             Subject{"GetAllSpeakersInSpeakerIndex",
                     [](KsNNDatabase& store) {
                         std::vector<std::string> speakers;
                         return store.GetAllSpeakersInSpeakerIndex(speakers, false);
                     }},
             Subject{"GetAllSpeakersInProject",
                     [](KsNNDatabase& store) {
                         std::vector<KsNNSpeakerKV> speakers;
                         return store.GetAllSpeakersInProject("p", speakers, false);
                     }},
             Subject{"ShareSpeakers",
                     [](KsNNDatabase& store) { return store.ShareSpeakers("own", "r", "Third", false); }},
             Subject{"FindReferencesOfSpeaker",
                     [](KsNNDatabase& store) {
                         bool found = false;
                         return store.FindReferencesOfSpeaker("ann", "p", found, false);
                     }},
             // A speaker that is gone cannot be deleted again.
             Subject{.name = "SpeakerDelete",
             .run = [](KsNNDatabase& store) { return store.SpeakerDelete("p", "bob", false); },
             .whenDoneAlready = KsNN_Error},
             Subject{"SpeakerRenameBasedOnSpeakerGuid",
                     [](KsNNDatabase& store) {
                         KsNNSpeakerKV speaker = bob();
                         return store.SpeakerRenameBasedOnSpeakerGuid(speaker, "Robert", false);
                     }},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
}

TEST_F(Faults, SpeakersOfSegments) {
    for (const Subject& subject : {
             Subject{"SpeakerSetSegName",
                     [](KsNNDatabase& store) {
                         KsNNSpeakerKV speaker = bob();
                         return store.SpeakerSetSegName("own", "p", speaker, 0, false);
                     }},
             Subject{"CorrectSpeakerID",
                     [](KsNNDatabase& store) { return store.CorrectSpeakerID("own", "p", "S7", 1, false); }},
             Subject{"SpeakerRenameAllSegments",
                     [](KsNNDatabase& store) {
                         KsNNSpeakerKV speaker = bob();
                         return store.SpeakerRenameAllSegments("own", "p", speaker, 0, false);
                     }},
             Subject{.name = "MergeSpeakersInProject",
             .run =
                         [](KsNNDatabase& store) {
                             return store.MergeSpeakersInProject("p", "ann", "bob", "bob", false);
                         },
             .whenDoneAlready = KsNN_Error},
             Subject{
                 "ClearSpeakerIDForEntireClip",
                 [](KsNNDatabase& store) { return store.ClearSpeakerIDForEntireClip("own", "ann", false); }},
             Subject{
                 "ClearSpeakerIDForEntireProject",
                 [](KsNNDatabase& store) { return store.ClearSpeakerIDForEntireProject("p", "ann", false); }},
             Subject{"ClearSpeakerIDPerSeg",
                     [](KsNNDatabase& store) { return store.ClearSpeakerIDPerSeg("own", 1, false); }},
         }) {
        SCOPED_TRACE(subject.name);
        expectCleanFailures(subject);
    }
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
    expectCleanFailures({.name = "DowngradeDBUsersVersion2to1",
                         .run = [](KsNNDatabase& store) { return store.DowngradeDBUsersVersion2to1(false); },
                         .isRepeatable = false});
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
    expectCleanFailures({.name = "ImportDBContentsFromKST",
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
