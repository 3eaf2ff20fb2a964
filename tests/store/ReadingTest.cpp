#include "tests/store/ScriptedStore.h"

namespace kestrel_test {
namespace {

using testing::HasSubstr;

/// A hit of the transcript query with the fields that every version has.
std::string hit(int segment, const std::string& more, const std::string& ends = "[9, 20]") {
    return R"({"_source": {"segment": )" + std::to_string(segment) +
           R"(, "mediaGuid": "m", "transcript": "two words", "language": "en", "wordStartsMS": [0, 10], "wordEndsMS": )" +
           ends + ", " + more + "}}";
}

const char* const kClip =
    R"("model": "small", "clipName": "A001", "audioTracks": "1", "progressComplete": true,
                             "clientApp": "Editor")";
const std::string kZero =
    R"("speakerID": "S0", "projectGuidList": ["q", "p"], "schemaVersion": 2, "projectList":
    [{"projectGuid": "q", "projectName": "Other"}, {"projectGuid": "p", "projectName": "Film"}], )" +
    std::string(kClip);
const char* const kOne = R"("speakerID": "S1", "speakerGuid": "G1", "projectGuidList": ["q"])";

class Reading : public ScriptedStore {
protected:
    KsNN_ErrorCode read(const std::string& elements) {
        mServer.script({ok(), ok(), hits(elements)});
        return mStore->GetDBContents("m", "p", mEntry, false, 2);
    }
    KsNNDB_STTClipEntry mEntry;
};

TEST_F(Reading, ReplacesTheSegmentsAndAddsTheProjects) {
    ASSERT_EQ(read(hit(0, kZero) + "," + hit(1, kOne)), KsNN_Success) << mStore->GetErrorStr();
    ASSERT_EQ(read(hit(0, kZero)), KsNN_Success);
    EXPECT_EQ(mEntry.segments.size(), 1U);
    EXPECT_EQ(mEntry.projects.size(), 4U);
}

TEST_F(Reading, BrokenDocumentsAreReported) {
    std::string versionThree = kZero;
    versionThree.replace(versionThree.find(": 2"), 3, ": 3");
    const std::tuple<std::string, const char*, std::size_t> cases[] = {
        {hit(0, kZero) + "," + hit(1, kOne, "[9]"), ", KsNNDatabase::GetDBContents err: \n", 1},
        {hit(0, versionThree), ", KsNNDatabase::GetDBContents err: schemaVersion is incorrect or missing, \n",
         1},
        {hit(1, R"("speakerID": "S1")"), "the answer has no \"projectGuidList\"", 0},
        {hit(0, kZero) + "," + hit(1, R"("projectGuidList": ["p"])"), "the answer has no \"speakerID\"", 1},
        {hit(1, kOne, R"(["x", 2])"), "\tmessage = ", 0},
        {hit(1, kOne, R"("none")"), "\"wordEndsMS\" is not an array", 0},
        {R"({"_id": "a"})", "the answer has no \"_source\"", 0},
        {"17", "\tmessage = ", 0},
    };
    for (const auto& [elements, report, kept] : cases) {
        EXPECT_EQ(read(elements), KsNN_Error) << elements;
        EXPECT_THAT(mStore->GetErrorStr(), HasSubstr(report));
        EXPECT_EQ(mEntry.segments.size(), kept) << elements;
    }
}

class SearchAnswers : public ScriptedStore {
protected:
    KsNN_ErrorCode search(const std::string& elements, float threshold = 0.6F) {
        mServer.script({ok(), ok(), hits(elements)});
        return mStore->Search(" Rich peeple!", "p", threshold, mResults, 0, false);
    }
    static std::string segment(const std::string& text, const std::string& starts, const std::string& ends) {
        return R"({"_source": {"mediaGuid": "m", "transcript": ")" + text +
               R"(", "language": "en", "wordStartsMS": )" + starts + R"(, "wordEndsMS": )" + ends + "}}";
    }
    std::vector<KsNNSearchResults> mResults;
};

TEST_F(SearchAnswers, BecomeHitsWithTheTimeOfTheirFirstWord) {
    mResults.resize(1);
    ASSERT_EQ(search(segment("filthy rich people, oh rich people ", "[0,1,2,3,4,5]", "[10,11,12,13,14,15]") +
                     "," + segment("", "[]", "[]") + "," + segment("nothing like it", "[0]", "[1]") + "," +
                     segment("filthy rich people", "[7]", "[8]")),
              KsNN_Success);
    ASSERT_EQ(mResults.size(), 4U);
    EXPECT_EQ(mResults[1].text, "filthy rich people, oh rich people ");
    EXPECT_EQ(mResults[1].mediaGuid + mResults[1].projectGuid + mResults[1].detail, "mp");
    EXPECT_NEAR(mResults[1].score, 0.9091F, 0.001F);
    EXPECT_EQ(mResults[1].startMS, 1.0F);
    EXPECT_EQ(mResults[1].endMS, 11.0F);
    EXPECT_EQ(mResults[2].startMS, 4.0F);
    // More words than times: the time of the segment's first word.
    EXPECT_EQ(mResults[3].startMS, 7.0F);
}

TEST_F(SearchAnswers, PhraseHitsTellAllThatIsKnown) {
    mServer.script(
        {ok(), ok(),
         hits(R"({"_source": {"mediaGuid": "m", "segment": 7, "speakerID": "S1", "speakerGuid": "G1",
                             "transcript": "Où là, “RICH peeple”!", "language": "fr",
                             "wordStartsMS": [20000001, 20000011, 20000021, 20000031],
                             "wordEndsMS": [20000009, 20000019, 20000029, 20000039]}})" +
              ("," + segment("rich people rich people", "[5]", "[6]"))),
         hits(R"({"_source": {"mediaGuid": "m", "clipName": "A001"}})")});
    KsNNPhraseQuery query;
    query.text = "rich people";
    query.projectGuid = "p";
    std::vector<KsNNPhraseHit> found;
    ASSERT_EQ(mStore->FindPhrase(query, found, false), KsNN_Success) << mStore->GetErrorStr();

    ASSERT_EQ(found.size(), 3U);
    const KsNNPhraseHit& hit = found[0];
    EXPECT_EQ(hit.mediaGuid + hit.clipName + hit.language + hit.speakerID + hit.speakerGuid, "mA001frS1G1");
    EXPECT_EQ(std::tuple(hit.segment, hit.wordIndex, hit.wordCount), std::tuple(7, 2, 2));
    EXPECT_EQ(hit.text.substr(hit.matchBegin, hit.matchEnd - hit.matchBegin), "RICH peeple");
    EXPECT_EQ(std::tuple(hit.startMS, hit.wordEndMS, hit.endMS), std::tuple(20000021, 20000029, 20000039));
    EXPECT_NEAR(hit.score, 0.9091F, 0.001F);
    EXPECT_EQ(std::tuple(found[1].segment, found[1].speakerID, found[1].speakerGuid), std::tuple(-1, "", ""));
    EXPECT_EQ(std::tuple(found[1].startMS, found[1].endMS), std::tuple(5, 6)) << "fewer times than words";
    EXPECT_EQ(found[2].startMS, 5) << "no time of its own: that of the segment's first word";
}

TEST_F(SearchAnswers, BrokenDocumentsKeepEarlierHits) {
    const std::string good = segment("rich people", "[1,2]", "[3,4]");
    EXPECT_EQ(search(good + "," + segment("rich people", "[]", "[]")), KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr(", KsNNDatabase::Search err: \n"));
    EXPECT_EQ(mResults.size(), 1U);
    EXPECT_EQ(search(good + "," + R"({"_source": {"transcript": "rich people", "language": "en"}})"),
              KsNN_Error);
    EXPECT_THAT(mStore->GetErrorStr(), HasSubstr("the answer has no \"mediaGuid\""));
    EXPECT_THAT(mStore->GetErrorStr(), testing::Not(HasSubstr("Search err")));
    EXPECT_EQ(mResults.size(), 2U);
}

} // namespace
} // namespace kestrel_test
