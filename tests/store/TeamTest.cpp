// What a team does with clips after they are transcribed, on a real index service.

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Schema.h"
#include "tests/store/RealStore.h"

#include <gmock/gmock.h>

#include <set>

namespace kestrel_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class Team : public StoreOnEachEngine {
protected:
    Team() {
        mStore.DeleteIndex(KsNNDatabase::getSpeakerIndex(), false);
        mStore.CreateIndex(KsNNDatabase::getSpeakerIndex(), false);
        mStore.CreateIndex(KsNNDatabase::getTranscriptIndex(), false);
    }

    void expectSuccess(KsNN_ErrorCode code) { EXPECT_EQ(code, KsNN_Success) << mStore.GetErrorStr(); }

    void join(const std::string& clip, const std::string& project, const std::string& name) {
        expectSuccess(mStore.LockEntry(clip, false));
        expectSuccess(mStore.AddNewProjectToProjectList(clip, project, name, false));
        expectSuccess(mStore.UnlockEntry(clip, false));
    }

    std::vector<std::string> clipsOf(const std::string& project, int pageSize = 100) {
        std::vector<std::string> clips;
        expectSuccess(mStore.GetAllMediaGuids(project, clips, false, pageSize));
        return clips;
    }

    std::vector<std::string> projects() {
        std::vector<KsNNProject> found;
        expectSuccess(mStore.GetAllEntries(found, false));
        std::vector<std::string> names;
        for (const KsNNProject& project : found)
            names.push_back(project.projectGuid + "=" + project.projectName);
        return names;
    }

    KsNNDB_STTClipEntry read(const std::string& clip, const std::string& project) {
        KsNNDB_STTClipEntry entry;
        expectSuccess(mStore.GetDBContents(clip, project, entry, false, 2));
        return entry;
    }

    KsNNSpeakerKV createSpeaker(const std::string& name) {
        KsNNSpeakerKV speaker;
        speaker.speakerName = name;
        speaker.projectGuid = "project one";
        speaker.projectName = "Film";
        expectSuccess(mStore.SpeakerCreateNew(speaker, false));
        return speaker;
    }

    std::vector<std::string> speakersKnownTo(const std::string& project) {
        std::vector<KsNNSpeakerKV> speakers;
        expectSuccess(mStore.GetAllSpeakersInProject(project, speakers, false));
        std::vector<std::string> names;
        for (const KsNNSpeakerKV& speaker : speakers)
            names.push_back(speaker.speakerName);
        return names;
    }

    /// Writes clips of one segment each, with numbers for names, in one request.
    void writeMany(int from, int to, const std::vector<KsNNProject>& projects, bool complete) {
        std::stringstream bulk;
        for (int number = from; number < to; ++number) {
            KsNNDB_STTClipEntry entry;
            static_cast<KsNNDBEntryBase&>(entry) = base();
            entry.progressComplete = complete;
            entry.projects = projects;
            KsNNDBEntrySeg seg = segment("clip " + std::to_string(number), 0, "some words");
            for (const KsNNProject& project : projects)
                seg.projectGuidList.push_back(project.projectGuid);
            kestrelml::detail::appendBulkCreate(entry, seg, bulk);
        }
        Poco::JSON::Object::Ptr answer;
        unsigned status = 0;
        expectSuccess(RESTCall("PUT", kestrelml::detail::bulkPath(KsNNDatabase::getTranscriptIndex()), 60,
                               bulk, answer, status, &mStore, true, true, false));
        ASSERT_EQ(status, 200U);
    }
};

KESTREL_ON_EACH_ENGINE(Team);

TEST_P(Team, TwoProjectsShareClipsUntilOneLeaves) {
    writeClip("interview", {"the minister said nothing", "about the budget"});
    writeClip("street", {"rain and more rain"});
    EXPECT_EQ(mStore.AddNewProjectToProjectList("interview", "project two", "Series", false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::AppendProjectToEntry: Missing lock."));

    KsNNSpeakerKV anna = createSpeaker("Anna");
    KsNNSpeakerKV anne = createSpeaker("Anne");
    expectSuccess(mStore.SpeakerSetSegName("interview", "project one", anna, 0, false));
    expectSuccess(mStore.SpeakerSetSegName("interview", "project one", anne, 1, false));
    join("interview", "project two", "Series");
    join("interview", "project two", "Series"); // changes nothing
    EXPECT_THAT(projects(), ElementsAre("project one=Film", "project two=Series"));
    EXPECT_THAT(clipsOf("project one"), UnorderedElementsAre("interview", "street"));
    EXPECT_THAT(clipsOf("project two"), ElementsAre("interview"));
    EXPECT_THAT(clipsOf("ALL"), SizeIs(2));
    EXPECT_EQ(read("interview", "project two").projectName, "Series");
    EXPECT_THAT(read("interview", "project two").projects, SizeIs(2));
    std::vector<KsNNSearchResults> hits;
    expectSuccess(mStore.Search("the budjet", "project two", 0.7F, hits, 10, false));
    EXPECT_THAT(hits, SizeIs(1));

    // Both projects know the speakers of the clip they share; each can clean up for itself.
    EXPECT_THAT(speakersKnownTo("project two"), UnorderedElementsAre("Anna", "Anne"));
    expectSuccess(mStore.MergeSpeakersInProject("project one", anna.speakerGuid, anne.speakerGuid,
                                                anna.speakerGuid, false));
    EXPECT_THAT(speakersKnownTo("project one"), ElementsAre("Anna"));
    EXPECT_THAT(speakersKnownTo("project two"), UnorderedElementsAre("Anna", "Anne"));

    expectSuccess(mStore.DeleteEntry("interview", "project one", false, 10, nullptr));
    EXPECT_THAT(clipsOf("project one"), ElementsAre("street"));
    EXPECT_THAT(read("interview", "project one").segments, IsEmpty());
    EXPECT_THAT(read("interview", "project two").segments, SizeIs(2));
    EXPECT_THAT(read("interview", "project two").projects, SizeIs(1));
    expectSuccess(mStore.DeleteEntry("interview", "project two", false, 10, nullptr));
    EXPECT_THAT(projects(), ElementsAre("project one=Film"));
    EXPECT_THAT(clipsOf("ALL"), ElementsAre("street"));
}

TEST_P(Team, AClipBringsAllItsSpeakers) {
    constexpr std::size_t kSpeakers = 12;
    writeClip("debate", std::vector<std::string>(kSpeakers, "some words"));
    for (std::size_t i = 0; i < kSpeakers; ++i) {
        KsNNSpeakerKV speaker = createSpeaker("Speaker " + std::to_string(i));
        expectSuccess(mStore.SpeakerSetSegName("debate", "project one", speaker, static_cast<int>(i), false));
    }
    join("debate", "project two", "Series");
    EXPECT_THAT(speakersKnownTo("project two"), SizeIs(10));
    for (int twice = 0; twice < 2; ++twice)
        expectSuccess(mStore.ShareSpeakers("debate", "project two", "Series", false));
    EXPECT_THAT(speakersKnownTo("project two"), SizeIs(kSpeakers));
    EXPECT_THAT(speakersKnownTo("project one"), SizeIs(kSpeakers));
}

TEST_P(Team, ImportedClipsBelongToTheFirstProjectThatTakesThem) {
    writeMany(0, 1, {{"KST_Import_ProjectName", "KST_Import_ProjectGuid"}}, true);
    EXPECT_THAT(projects(), ElementsAre("KST_Import_ProjectGuid=KST_Import_ProjectName"));
    join("clip 0", "project one", "Film");
    join("clip 0", "project two", "Series");
    EXPECT_THAT(projects(), UnorderedElementsAre("project one=Film", "project two=Series"));
    EXPECT_THAT(read("clip 0", "project one").segments[0].projectGuidList,
                ElementsAre("project one", "project two"));
}

TEST_P(Team, AProjectAppendedTwiceIsListedTwiceAndRemovedOnce) {
    writeClip("interview", {"one", "two"});
    expectSuccess(mStore.LockEntry("interview", false));
    for (int twice = 0; twice < 2; ++twice)
        expectSuccess(mStore.AppendProjectToEntry("interview", "project two", "Series", -1, false));
    expectSuccess(mStore.AppendProjectToEntry("interview", "project three", "Trailer", 1, false));
    KsNNDB_STTClipEntry entry = read("interview", "project one");
    EXPECT_THAT(entry.projects, SizeIs(3));
    EXPECT_THAT(entry.segments[1].projectGuidList,
                ElementsAre("project one", "project two", "project two", "project three"));
    expectSuccess(mStore.RemoveProjectFromEntry("interview", "project two", false));
    expectSuccess(mStore.RemoveProjectFromEntry("interview", "project three", false));
    entry = read("interview", "project one");
    EXPECT_THAT(entry.projects, SizeIs(1));
    EXPECT_THAT(entry.segments[1].projectGuidList, ElementsAre("project one"));
}

TEST_P(Team, ListsAndDeletesMoreClipsThanAPageHas) {
    writeMany(0, 200, {{"Film", "project one"}}, true);
    writeMany(200, 250, {{"Film", "project one"}, {"Series", "project two"}}, true);
    writeMany(250, 260, {{"Film", "project one"}}, false);
    for (const int pageSize : {100, 250, 1000}) {
        const std::vector<std::string> clips = clipsOf("project one", pageSize);
        EXPECT_THAT(clips, SizeIs(250));
        EXPECT_THAT(std::set<std::string>(clips.begin(), clips.end()), SizeIs(250));
    }
    EXPECT_THAT(clipsOf("project two", 50), SizeIs(50));

    std::size_t told = 0;
    expectSuccess(
        mStore.DeleteEntry("ALL", "project one", false, 100, [&](int current, int total, const char*) {
            EXPECT_EQ(current, static_cast<int>(told++ % 100));
            EXPECT_EQ(total, current);
            return KsNN_Success;
        }));
    EXPECT_EQ(told, 260U);
    EXPECT_THAT(clipsOf("ALL"), SizeIs(50));
    EXPECT_THAT(projects(), ElementsAre("project two=Series"));
}

TEST_P(Team, ClipsAreFoundWithWhatTheyContain) {
    writeClip("interview", {"the minister said nothing", "about the budget", "", ""});
    KsNNSpeakerKV anna = createSpeaker("Anna");
    expectSuccess(mStore.SpeakerSetSegName("interview", "project one", anna, 1, false));
    writeMany(0, 1100, {{"Series", "project two"}}, true);
    writeMany(1100, 1102, {{"Film", "project one"}, {"Series", "project two"}}, false);

    const auto find = [&](const KsNNClipQuery& query) {
        std::vector<KsNNClipSummary> clips;
        expectSuccess(mStore.FindClips(query, clips, false));
        return clips;
    };
    KsNNClipQuery every;
    every.withContents = true;
    const std::vector<KsNNClipSummary> all = find(every);
    EXPECT_THAT(all, SizeIs(1103));
    for (const KsNNClipSummary& clip : all) {
        if (clip.mediaGuid == "interview") continue;
        EXPECT_EQ(std::tuple(clip.segmentCount, clip.endMS, clip.languages.size()), std::tuple(1, 190, 1U));
    }
    KsNNClipQuery some;
    some.projectGuid = "project one";
    EXPECT_THAT(find(some), SizeIs(3));
    some.unfinishedOnly = true;
    EXPECT_THAT(find(some), SizeIs(2));
    some.clipName = "A00";
    EXPECT_THAT(find(some), IsEmpty());

    every.mediaGuid = "interview";
    const std::vector<KsNNClipSummary> one = find(every);
    ASSERT_THAT(one, SizeIs(1));
    EXPECT_EQ(one[0].clipName, "A001");
    EXPECT_TRUE(one[0].isComplete);
    EXPECT_EQ(one[0].segmentCount, 4);
    EXPECT_EQ(one[0].endMS, 1290) << "of the last segment that has words";
    ASSERT_THAT(one[0].projects, SizeIs(1));
    EXPECT_EQ(one[0].projects[0].projectName, "Film");
    EXPECT_THAT(one[0].languages, ElementsAre("en"));
    const std::string label = segment("", 0, "").speakerID;
    ASSERT_THAT(one[0].speakers, SizeIs(2));
    EXPECT_EQ(one[0].speakers[0].speakerGuid, anna.speakerGuid);
    EXPECT_EQ(one[0].speakers[1].speakerGuid, "");
    for (const KsNNClipSpeaker& speaker : one[0].speakers)
        EXPECT_EQ(speaker.speakerID, label);
}

TEST_P(Team, CancelledDeletionLeavesTheRest) {
    writeMany(0, 5, {{"Film", "project one"}}, true);
    int told = 0;
    const auto cancelAtTheFourth = [&](int, int, const char*) {
        return ++told == 4 ? KsNN_SetupFailed : KsNN_Success;
    };
    EXPECT_EQ(mStore.DeleteEntry("ALL", "project one", false, 2, cancelAtTheFourth), KsNN_SetupFailed);
    EXPECT_THAT(mStore.GetErrorStr(), IsEmpty());
    EXPECT_THAT(clipsOf("project one"), SizeIs(2));
}

TEST_P(Team, UnfinishedClipsAreSweptTenAtATime) {
    writeMany(0, 12, {{"Film", "project one"}, {"Series", "project two"}}, false);
    writeMany(12, 14, {{"Film", "project one"}}, true);
    std::vector<KsNNSearchResults> unfinished;
    expectSuccess(mStore.GetAllInprogressEntries(unfinished, false));
    EXPECT_THAT(unfinished, SizeIs(20));
    EXPECT_EQ(unfinished[0].text, "some words");
    expectSuccess(mStore.DeleteAllInProgressEntries(false));
    unfinished.clear();
    expectSuccess(mStore.GetAllInprogressEntries(unfinished, false));
    EXPECT_THAT(unfinished, SizeIs(4));
    expectSuccess(mStore.DeleteAllInProgressEntries(false));
    int documents = 0;
    expectSuccess(mStore.GetTotalSegmentCount(documents, false));
    EXPECT_EQ(documents, 2);
    expectSuccess(mStore.HardDeleteEntries({"clip 12", "clip 13", "unknown"}, false));
    EXPECT_THAT(clipsOf("ALL"), IsEmpty());
}

} // namespace
} // namespace kestrel_test
