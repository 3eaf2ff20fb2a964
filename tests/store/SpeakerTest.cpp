// Speakers and their assignment to segments, on a real index service.

#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Scripts.h"
#include "tests/store/RealStore.h"

#include <gmock/gmock.h>

namespace kestrel_test {
namespace {

using namespace kestrelml::detail;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class Speakers : public StoreOnEachEngine {
protected:
    Speakers() {
        mStore.DeleteIndex(KsNNDatabase::getSpeakerIndex(), false);
        mStore.CreateIndex(KsNNDatabase::getSpeakerIndex(), false);
    }

    KsNNSpeakerKV create(const std::string& name, const std::string& project = "project one") {
        KsNNSpeakerKV speaker;
        speaker.speakerName = name;
        speaker.projectGuid = project;
        speaker.projectName = "Name of " + project;
        EXPECT_EQ(mStore.SpeakerCreateNew(speaker, false), KsNN_Success) << mStore.GetErrorStr();
        EXPECT_NE(speaker.speakerGuid, "");
        return speaker;
    }
    /// Writes a clip of "project one" with a segment for each label.
    void writeLabelled(const std::string& clip, const std::vector<std::string>& labels) {
        ASSERT_EQ(mStore.LockEntry(clip, false), KsNN_Success) << mStore.GetErrorStr();
        for (std::size_t i = 0; i < labels.size(); ++i) {
            KsNNDBEntrySeg seg = segment(clip, static_cast<int>(i), "some words");
            seg.speakerID = labels[i];
            ASSERT_EQ(mStore.WriteToDB(base(), seg, false), KsNN_Success) << mStore.GetErrorStr();
        }
        ASSERT_EQ(mStore.SetProgressComplete(clip, false, 2, ""), KsNN_Success) << mStore.GetErrorStr();
    }
    std::vector<std::string> fieldOf(const std::string& clip, std::string KsNNDBEntrySeg::*field) {
        KsNNDB_STTClipEntry entry;
        EXPECT_EQ(mStore.GetDBContents(clip, "project one", entry, false, 2), KsNN_Success);
        std::vector<std::string> values;
        for (const KsNNDBEntrySeg& seg : entry.segments)
            values.push_back(seg.*field);
        return values;
    }
    std::vector<std::string> speakersOf(const std::string& clip) {
        return fieldOf(clip, &KsNNDBEntrySeg::speakerGuid);
    }
    std::vector<std::string> namesIn(const std::string& project) {
        std::vector<KsNNSpeakerKV> speakers;
        EXPECT_EQ(mStore.GetAllSpeakersInProject(project, speakers, false), KsNN_Success)
            << mStore.GetErrorStr();
        std::vector<std::string> names;
        for (const KsNNSpeakerKV& speaker : speakers)
            names.push_back(speaker.speakerName);
        return names;
    }
    void join(const KsNNSpeakerKV& speaker, const std::string& project) {
        Object::Ptr answer;
        unsigned status = 0;
        RESTCall("POST", updatePath(KsNNDatabase::getSpeakerIndex(), speaker.speakerGuid), 10,
                 object("script", script::addProjectToSpeaker(project, "")), answer, status, &mStore, true,
                 true, false);
        ASSERT_EQ(status, 200U);
    }
};

KESTREL_ON_EACH_ENGINE(Speakers);

TEST_P(Speakers, AreListedByProject) {
    const KsNNSpeakerKV anna = create("Anna");
    for (int i = 0; i < 11; ++i)
        create("Extra " + std::to_string(i));
    create("Anna", "project two");
    EXPECT_THAT(namesIn("project one"), SizeIs(12));
    EXPECT_THAT(namesIn("project two"), ElementsAre("Anna"));
    EXPECT_THAT(namesIn("project three"), IsEmpty());
    std::vector<std::string> page = {"kept"};
    ASSERT_EQ(mStore.GetAllSpeakersInSpeakerIndex(page, false), KsNN_Success);
    EXPECT_THAT(page, SizeIs(11)) << "the service's default page has ten";

    std::string name = "unchanged";
    ASSERT_EQ(mStore.GetSpeakerName(anna.speakerGuid, name, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_EQ(name, "Anna");
    EXPECT_EQ(mStore.GetSpeakerName("nobody", name, false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr(", KsNNDatabase::GetSpeakerName err: \n"));
    EXPECT_EQ(name, "Anna");
}

TEST_P(Speakers, OfSegmentsAreListedUpToTen) {
    writeLabelled("clip", std::vector<std::string>(12, "A"));
    std::vector<KsNNSpeakerKV> listed = {KsNNSpeakerKV()};
    ASSERT_EQ(mStore.SpeakerGetList("project one", listed, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(listed, IsEmpty());
    for (int i = 0; i < 12; ++i) {
        KsNNSpeakerKV speaker = create("Speaker " + std::to_string(i));
        ASSERT_EQ(mStore.SpeakerSetSegName("clip", "project one", speaker, i, false), KsNN_Success)
            << mStore.GetErrorStr();
    }
    ASSERT_EQ(mStore.SpeakerGetList("project one", listed, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(listed, SizeIs(10));
    EXPECT_THAT(listed[0].speakerName, HasSubstr("Speaker "));
    ASSERT_EQ(mStore.SpeakerGetList("project two", listed, false), KsNN_Success);
    EXPECT_THAT(listed, IsEmpty());
}

TEST_P(Speakers, AreAssignedToOneSegmentOrToAllOfALabel) {
    writeLabelled("clip", {"A", "B", "A", "A", "B"});
    writeLabelled("other", {"A"});
    KsNNSpeakerKV anna = create("Anna");
    KsNNSpeakerKV ben = create("Ben");
    ASSERT_EQ(mStore.SpeakerSetSegName("clip", "project one", ben, 4, false), KsNN_Success);
    ASSERT_EQ(mStore.SpeakerRenameAllSegments("clip", "project one", anna, 2, false), KsNN_Success)
        << mStore.GetErrorStr();
    EXPECT_THAT(speakersOf("clip"),
                ElementsAre(anna.speakerGuid, "Unk", anna.speakerGuid, anna.speakerGuid, ben.speakerGuid));
    EXPECT_THAT(speakersOf("other"), ElementsAre("Unk"));
    ASSERT_EQ(mStore.CorrectSpeakerID("clip", "project one", "C", 1, false), KsNN_Success);
    EXPECT_THAT(fieldOf("clip", &KsNNDBEntrySeg::speakerID), ElementsAre("A", "C", "A", "A", "B"));

    ASSERT_EQ(mStore.SpeakerRenameBasedOnSpeakerGuid(anna, "Anna Maria", false), KsNN_Success);
    EXPECT_EQ(anna.speakerName, "Anna Maria");
    EXPECT_THAT(namesIn("project one"), UnorderedElementsAre("Anna Maria", "Ben"));
}

TEST_P(Speakers, SegmentsThatAreNotThereAndSpeakersThatAreNone) {
    writeLabelled("clip", {"A", "A", "A", "A", "A"});
    KsNNSpeakerKV anna = create("Anna");
    KsNNSpeakerKV nobody;
    const auto expectFailure = [&](KsNN_ErrorCode code, const char* report) {
        EXPECT_EQ(code, KsNN_Error);
        EXPECT_THAT(mStore.GetErrorStr(), HasSubstr(report));
    };
    expectFailure(mStore.SpeakerSetSegName("clip", "project one", anna, 5, false),
                  ", KsNNDatabase::SpeakerSetSegName err: \n");
    expectFailure(mStore.CorrectSpeakerID("clip", "project two", "B", 0, false),
                  ", KsNNDatabase::CorrectSpeakerID err: No document present to edit \n");
    expectFailure(mStore.SpeakerRenameAllSegments("clip", "project one", anna, -1, false),
                  ", KsNNDatabase::SpeakerRenameAllSegments err: \n");
    expectFailure(mStore.SpeakerSetSegName("clip", "project one", nobody, 0, false),
                  ", KsNNDatabase::SpeakerSetSegName err: Speakername not in speaker database \n");
    expectFailure(mStore.SpeakerRenameAllSegments("clip", "project one", nobody, 0, false),
                  ", KsNNDatabase::SpeakerRenameAllSegments err: Speakername not in speaker database \n");
    expectFailure(
        mStore.MergeSpeakersInProject("project one", anna.speakerGuid, "", anna.speakerGuid, false),
        ", KsNNDatabase::MergeSpeakersInProject err: SpeakerGuid is empty, invalid input to function \n");
    EXPECT_THAT(speakersOf("clip"), testing::Each("Unk"));
}

TEST_P(Speakers, MergeMovesSegmentsAndRemovesWhoIsNotKept) {
    writeLabelled("clip", {"A", "B", "C"});
    writeLabelled("other", {"B"});
    KsNNSpeakerKV anna = create("Anna");
    KsNNSpeakerKV anne = create("Anne");
    KsNNSpeakerKV ben = create("Ben");
    const auto assign = [&](const std::string& clip, int segment, KsNNSpeakerKV& speaker) {
        ASSERT_EQ(mStore.SpeakerSetSegName(clip, "project one", speaker, segment, false), KsNN_Success);
    };
    assign("clip", 0, anna);
    assign("clip", 1, anne);
    assign("clip", 2, ben);
    assign("other", 0, anne);
    ASSERT_EQ(mStore.MergeSpeakersInProject("project one", anna.speakerGuid, anne.speakerGuid,
                                            anna.speakerGuid, false),
              KsNN_Success)
        << mStore.GetErrorStr();
    EXPECT_THAT(speakersOf("clip"), ElementsAre(anna.speakerGuid, anna.speakerGuid, ben.speakerGuid));
    EXPECT_THAT(speakersOf("other"), ElementsAre(anna.speakerGuid));
    EXPECT_THAT(namesIn("project one"), UnorderedElementsAre("Anna", "Ben"));
}

TEST_P(Speakers, AreClearedFromSegmentClipAndProject) {
    writeLabelled("clip", {"A", "A", "B"});
    writeLabelled("other", {"A"});
    KsNNSpeakerKV anna = create("Anna");
    KsNNSpeakerKV ben = create("Ben");
    const std::string& a = anna.speakerGuid;
    ASSERT_EQ(mStore.SpeakerRenameAllSegments("clip", "project one", anna, 0, false), KsNN_Success);
    ASSERT_EQ(mStore.SpeakerRenameAllSegments("other", "project one", anna, 0, false), KsNN_Success);
    ASSERT_EQ(mStore.SpeakerSetSegName("clip", "project one", ben, 2, false), KsNN_Success);

    for (int twice = 0; twice < 2; ++twice)
        ASSERT_EQ(mStore.ClearSpeakerIDPerSeg("clip", 0, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(speakersOf("clip"), ElementsAre("Unk", a, ben.speakerGuid));
    ASSERT_EQ(mStore.ClearSpeakerIDForEntireClip("clip", a, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(speakersOf("clip"), ElementsAre("Unk", "Unk", ben.speakerGuid));
    EXPECT_THAT(speakersOf("other"), ElementsAre(a));
    ASSERT_EQ(mStore.ClearSpeakerIDForEntireProject("another", a, false), KsNN_Success);
    EXPECT_THAT(speakersOf("other"), ElementsAre(a));
    ASSERT_EQ(mStore.ClearSpeakerIDForEntireProject("project one", a, false), KsNN_Success);
    EXPECT_THAT(speakersOf("other"), ElementsAre("Unk"));
    EXPECT_THAT(fieldOf("clip", &KsNNDBEntrySeg::speakerID), ElementsAre("A", "A", "B")) << "labels stay";
}

TEST_P(Speakers, AreDeletedWithTheirLastProjectOnceNoSegmentHasThem) {
    writeLabelled("clip", {"A"});
    KsNNSpeakerKV anna = create("Anna");
    join(anna, "project two");
    ASSERT_EQ(mStore.SpeakerSetSegName("clip", "project one", anna, 0, false), KsNN_Success);
    EXPECT_EQ(mStore.SpeakerDelete("project one", anna.speakerGuid, false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("Please do a Clear first: \n"));
    EXPECT_THAT(namesIn("project one"), ElementsAre("Anna"));

    ASSERT_EQ(mStore.ClearSpeakerIDForEntireProject("project one", anna.speakerGuid, false), KsNN_Success);
    std::string name;
    ASSERT_EQ(mStore.SpeakerDelete("project one", anna.speakerGuid, false), KsNN_Success)
        << mStore.GetErrorStr();
    EXPECT_THAT(namesIn("project one"), IsEmpty());
    EXPECT_EQ(mStore.GetSpeakerName(anna.speakerGuid, name, false), KsNN_Success)
        << "known to another project";
    ASSERT_EQ(mStore.SpeakerDelete("project two", anna.speakerGuid, false), KsNN_Success);
    EXPECT_EQ(mStore.GetSpeakerName(anna.speakerGuid, name, false), KsNN_Error);
    EXPECT_EQ(mStore.SpeakerDelete("project two", anna.speakerGuid, false), KsNN_Error) << "unknown speaker";
}

TEST_P(Speakers, MissingIndicesReadAsAnEmptyStore) {
    KsNNSpeakerKV speaker;
    speaker.speakerGuid = "g";
    bool found = true;
    EXPECT_EQ(mStore.SpeakerSetSegName("clip", "p", speaker, 0, false), KsNN_Success);
    EXPECT_EQ(mStore.FindReferencesOfSpeaker("g", "p", found, false), KsNN_Success);
    EXPECT_TRUE(found) << "left as it was";
    EXPECT_EQ(mStore.ClearSpeakerIDPerSeg("clip", 0, false), KsNN_Success);
    // Without transcripts the speakers are still removed.
    KsNNSpeakerKV anna = create("Anna");
    KsNNSpeakerKV anne = create("Anne");
    found = false;
    ASSERT_EQ(mStore.DeleteSpeakerGuidInMerge("project one", anna.speakerGuid, anna.speakerGuid,
                                              anna.speakerGuid, false),
              KsNN_Success);
    ASSERT_EQ(mStore.MergeSpeakersInProject("project one", anna.speakerGuid, anne.speakerGuid,
                                            anne.speakerGuid, false),
              KsNN_Success)
        << mStore.GetErrorStr();
    EXPECT_THAT(namesIn("project one"), ElementsAre("Anne"));
    ASSERT_EQ(mStore.DeleteIndex(KsNNDatabase::getSpeakerIndex(), false), KsNN_Success);
    std::string name = "unchanged";
    EXPECT_EQ(mStore.GetSpeakerName("g", name, false), KsNN_Success);
    EXPECT_EQ(name, "unchanged");
    EXPECT_EQ(mStore.SpeakerDelete("p", "g", false), KsNN_Success);
}

} // namespace
} // namespace kestrel_test
