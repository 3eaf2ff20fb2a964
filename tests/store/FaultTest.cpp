// Every operation on a real service that fails at each of the operation's requests in turn. Which requests
// these are is learnt from the operation itself.

#include "tests/store/RealStore.h"
#include "tests/support/FaultProxy.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

#include <set>

namespace kestrel_test {
namespace {

struct Subject {
    const char* name;
    std::function<KsNN_ErrorCode(KsNNDatabase&)> run;
    /// Calling again after a fault leaves the store as one undisturbed call does.
    bool isRepeatable = true;
    /// What calling again may return, besides success: the first call did the work and its answer was lost.
    KsNN_ErrorCode whenDoneAlready = KsNN_Success;
    /// Passes over some failures.
    bool goesOn = false;
    /// Some failures come without a report.
    bool mayBeSilent = false;
};

class Faults : public RealStore {
protected:
    Faults() : mProxy(*sService), mStoreBehindProxy(mProxy.uri().c_str(), nullptr, nullptr, nullptr, false) {
        restore();
    }
    ~Faults() override {
        remove(mOtherIndex);
        remove(KsNNDatabase::getSpeakerIndex());
    }

    void expectCleanFailures(const Subject& subject) {
        const Stored before = stored();
        const auto [code, requests] = call(subject);
        ASSERT_EQ(code, KsNN_Success) << mStoreBehindProxy.GetErrorStr();
        const Stored after = stored();
        const bool onlyReads = before == after;
        for (std::size_t position = 0; position < requests.size(); ++position) {
            for (const Fault& fault : faults()) {
                SCOPED_TRACE(std::string(fault.name) + " at " + requests[position] + ", number " +
                             std::to_string(position));
                if (!onlyReads) restore();
                mProxy.failAt(position, fault);
                expectCleanFailure(subject, position);
                if (onlyReads || !subject.isRepeatable) continue;
                EXPECT_THAT(call(subject).first, testing::AnyOf(KsNN_Success, subject.whenDoneAlready));
                EXPECT_EQ(stored(), after);
            }
        }
        if (!onlyReads) restore();
    }

    std::string mIndex = KsNNDatabase::getTranscriptIndex();
    std::string mOtherIndex = mIndex + "_other";

private:
    /// The documents of the transcript and the speaker index, without identifiers; nothing for no index.
    using Stored = std::multiset<std::string>;

    std::pair<KsNN_ErrorCode, std::vector<std::string>> call(const Subject& subject) {
        mProxy.pass();
        const KsNN_ErrorCode code = subject.run(mStoreBehindProxy);
        return {code, mProxy.conversation()};
    }

    void expectCleanFailure(const Subject& subject, std::size_t position) {
        mStoreBehindProxy.ResetErrorStr();
        const KsNN_ErrorCode code = subject.run(mStoreBehindProxy);
        const std::string report = mStoreBehindProxy.GetErrorStr();
        if (subject.goesOn) return;
        EXPECT_THAT(code, testing::AnyOf(KsNN_Error, KsNN_Exception));
        const bool isSilent = report.empty() && code == KsNN_Error && subject.mayBeSilent;
        if (!isSilent) {
            EXPECT_THAT(report, testing::StartsWith("KsNN Error: "));
        }
        EXPECT_EQ(mProxy.conversation().size(), position + 1) << "goes on after a failure";
    }

    bool remove(const std::string& index) {
        try {
            mProxy.ask("DELETE", "/" + index);
            return true;
        } catch (const std::runtime_error&) {
            return false; // it was not there
        }
    }

    void createIndex(const std::string& index) {
        remove(index);
        mProxy.ask("PUT", "/" + index,
                   R"({"mappings": {"properties": {"projectList": {"type": "nested", "properties":
                   {"projectGuid": {"type": "keyword"}, "projectName": {"type": "keyword"}}}}}})");
    }

    /// Two complete clips of project p, one of them of q also; one clip under way; a lock; two speakers.
    void restore() {
        remove(mOtherIndex);
        createIndex(mIndex);
        createIndex(KsNNDatabase::getSpeakerIndex());
        std::string bulk;
        for (const std::string clip : {"own", "shared", "under way"}) {
            const bool isShared = clip == "shared";
            const std::string common = R"("mediaGuid": ")" + clip + R"(", "projectGuidList": ["p")" +
                                       (isShared ? R"(, "q")" : "") +
                                       R"(], "transcript": "some words", "language": "en", "speakerID": "S0",
                                       "wordStartsMS": [0, 10], "wordEndsMS": [9, 19]})";
            const std::string projects =
                std::string(R"({"projectGuid": "p", "projectName": "Film"})") +
                (isShared ? R"(, {"projectGuid": "q", "projectName": "Other"})" : "");
            bulk += line("create", mIndex) + flat(R"({"segment": 0, "schemaVersion": 2, "model": "m",
                "clipName": "c", "audioTracks": "1", "clientApp": "a", "progressComplete": )" +
                                                  std::string(clip == "under way" ? "false" : "true") +
                                                  R"(, "projectList": [)" + projects + "], " + common);
            bulk += line("create", mIndex) + flat(R"({"segment": 1, "speakerGuid": "ann", )" + common);
        }
        bulk += line("create", mIndex, "own") + R"({"KSNNlock": true})" + "\n";
        bulk += line("create", mIndex, "new") + R"({"KSNNlock": true})" + "\n";
        for (const std::string speaker : {"ann", "bob"}) {
            bulk += line("create", KsNNDatabase::getSpeakerIndex(), speaker) +
                    flat(R"({"speakerName": ")" + speaker +
                         R"(", "projectList": [{"projectGuid": "p", "projectName": "Film"}]})");
        }
        ASSERT_THAT(mProxy.ask("PUT", "/_bulk", bulk), testing::HasSubstr(R"("errors":false)"));
    }

    static std::string line(const std::string& action, const std::string& index, const std::string& id = "") {
        return R"({")" + action + R"(": {"_index": ")" + index + "\"" +
               (id.empty() ? "" : R"(, "_id": ")" + id + "\"") + "}}\n";
    }

    static std::string flat(const std::string& json) {
        std::ostringstream line;
        Poco::JSON::Parser().parse(json).extract<Poco::JSON::Object::Ptr>()->stringify(line);
        return line.str() + "\n";
    }

    Stored stored() {
        Stored documents;
        for (const std::string& index : {mIndex, KsNNDatabase::getSpeakerIndex(), mOtherIndex}) {
            try {
                mProxy.ask("POST", "/" + index + "/_refresh");
            } catch (const std::runtime_error&) {
                continue; // there is no such index
            }
            documents.insert(index);
            const auto answer = Poco::JSON::Parser()
                                    .parse(mProxy.ask("GET", "/" + index + "/_search", R"({"size": 100})"))
                                    .extract<Poco::JSON::Object::Ptr>();
            for (const auto& hit : *answer->getObject("hits")->getArray("hits"))
                documents.insert(Poco::Dynamic::Var::toString(
                    hit.extract<Poco::JSON::Object::Ptr>()->getObject("_source")));
        }
        return documents;
    }

    FaultProxy mProxy;
    KsNNDatabase mStoreBehindProxy;
};

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
             .goesOn = true},
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
             .goesOn = true},
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

} // namespace
} // namespace kestrel_test
