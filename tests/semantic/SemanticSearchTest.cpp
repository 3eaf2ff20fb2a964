// Search by meaning over a real index service, with real models in this process.

#include "tests/store/RealStore.h"
#include "tests/store/ScriptedStore.h"

#include <cstdlib>
#include <onnxruntime_cxx_api.h>

namespace kestrel_test {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::FloatNear;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string models() {
    const char* const deps = std::getenv("KESTREL_DEPS_DIR");
    return std::string(deps == nullptr ? ".deps" : deps) + "/models/semantic";
}

/// A store with models and a semantic index of its own.
class SemanticSearch : public RealStore {
protected:
    static void SetUpTestSuite() {
        RealStore::SetUpTestSuite();
        sLoaded.emplace(connect());
        ASSERT_EQ(sLoaded->LoadSemanticSearchModels(models(), "", KsNNSemanticOnnx, false), KsNN_Success);
    }
    static void TearDownTestSuite() {
        sLoaded.reset();
        RealStore::TearDownTestSuite();
    }

    SemanticSearch() {
        mStore = *sLoaded; // copies share the models
        KsNNDatabase::setSemanticIndex(KsNNDatabase::getTranscriptIndex() + "_frames");
    }
    ~SemanticSearch() override { mStore.DeleteIndex(KsNNDatabase::getSemanticIndex(), false); }

    int writeFrames(const std::string& clip) {
        int written = -1;
        const auto code = mStore.WriteSemanticFrames(clip, "p", KsNNSemanticOnnx, written, nullptr, false);
        EXPECT_EQ(code, KsNN_Success) << mStore.GetErrorStr();
        return written;
    }

    std::vector<KsNNSearchResults> find(const std::string& query, int count) {
        std::vector<KsNNSearchResults> results;
        const auto code = mStore.SemanticSearch(query, "", 0.0F, results, count, KsNNSemanticOnnx, false);
        EXPECT_EQ(code, KsNN_Success) << mStore.GetErrorStr();
        return results;
    }

    inline static std::optional<KsNNDatabase> sLoaded;
};

TEST_F(SemanticSearch, FindsWhatWasMeantInAnotherLanguage) {
    writeClip("a",
              {"The ferry leaves at noon.", "Interest rates rose again.", "My grandmother baked bread."});
    EXPECT_EQ(writeFrames("a"), 3);
    const auto found = find("Wann fährt das Schiff ab?", 1);
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].text, "The ferry leaves at noon.");
    EXPECT_EQ(found[0].mediaGuid, "a");
    EXPECT_EQ(found[0].projectGuid, "");
    EXPECT_EQ(find("pain fait maison par ma grand-mère", 1)[0].startMS, 2000.0F);
    EXPECT_EQ(find("pain fait maison par ma grand-mère", 1)[0].endMS, 2000.0F);
}

TEST_F(SemanticSearch, OnlyNewSegmentsBecomeFramesAndChangedOnesAreReplaced) {
    writeClip("a", {"first", "second", "third"});
    writeClip("b", {"another clip"});
    EXPECT_EQ(writeFrames("a"), 3);
    EXPECT_EQ(writeFrames("b"), 1);
    EXPECT_EQ(writeFrames("a"), 0);
    mStore.HardDeleteEntries({"a"}, false);
    writeClip("a", {"first", "something else"});
    EXPECT_EQ(writeFrames("a"), 1);
    EXPECT_THAT(find("second", 10), SizeIs(3)); // two of a, one of b
    std::vector<KsNNSearchResults> found;
    const auto code = mStore.SemanticSearchInClip("something", "b", found, 10, KsNNSemanticOnnx, false);
    EXPECT_EQ(code, KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(found, ElementsAre(Field(&KsNNSearchResults::text, "another clip")));
}

TEST_F(SemanticSearch, FramesOfAnotherProgramAreFoundAndKept) {
    ASSERT_EQ(mStore.CreateIndex(KsNNDatabase::getSemanticIndex(), false), KsNN_Success);
    std::string numbers = "0.5";
    for (int i = 1; i < 512; ++i)
        numbers += i % 2 == 0 ? ",0.25" : ",-0.25";
    const std::string frame =
        R"({"mediaGuid":"a","fileName":"a.mov","projectName":"Film","framePositionMS":40,)"
        R"("imageDescription":"a picture","semanticImageVector":[)" +
        numbers + "]}";
    ASSERT_EQ(send("POST", KsNNDatabase::getSemanticIndex() + "/_doc?refresh=true", frame), 201U);
    writeClip("a", {"spoken"});
    EXPECT_EQ(writeFrames("a"), 1);
    EXPECT_THAT(find("spoken", 10), ElementsAre(Field(&KsNNSearchResults::text, "spoken"),
                                                Field(&KsNNSearchResults::text, "a picture")));
}

TEST_F(SemanticSearch, CancelledWritingGoesOnWhereItStopped) {
    std::vector<std::string> texts;
    for (int i = 0; i < 250; ++i)
        texts.push_back("number " + std::to_string(i));
    writeClip("a", texts);
    int written = -1;
    const auto cancelAt220 = [](int current, int /*total*/, const char* /*text*/) {
        return current == 220 ? KsNN_LockConflict : KsNN_Success;
    };
    EXPECT_EQ(mStore.WriteSemanticFrames("a", "p", KsNNSemanticOnnx, written, cancelAt220, false),
              KsNN_LockConflict);
    EXPECT_EQ(written, 200);
    EXPECT_EQ(writeFrames("a"), 50);
    EXPECT_THAT(find("number 7", 1000), SizeIs(250));
}

TEST_F(SemanticSearch, WithoutAnIndexThereIsNothingToFind) {
    KsNNDatabase without(sService->uri().c_str(), nullptr, nullptr, nullptr, false);
    std::vector<KsNNSearchResults> results;
    // No models are needed: no embedding is computed.
    EXPECT_EQ(without.SemanticSearch("text", "", 0, results, 5, KsNNSemanticOnnx, false), KsNN_Success);
    EXPECT_EQ(without.DeleteSemanticFrames({"a"}, false), KsNN_Success);
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(SemanticSearch, AnIndexOfAnotherDimensionIsAFailureThatSaysSo) {
    const std::string mapping =
        R"({"mappings":{"properties":{"semanticImageVector":{"type":"dense_vector","dims":3}}}})";
    ASSERT_EQ(send("PUT", KsNNDatabase::getSemanticIndex(), mapping), 200U);
    ASSERT_EQ(send("POST", KsNNDatabase::getSemanticIndex() + "/_doc?refresh=true",
                   R"({"semanticImageVector":[1,2,3]})"),
              201U);
    std::vector<KsNNSearchResults> results;
    EXPECT_EQ(mStore.SemanticSearch("text", "", 0, results, 5, KsNNSemanticOnnx, false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::SemanticSearch err: "));
    writeClip("a", {"spoken"});
    int written = -1;
    EXPECT_EQ(mStore.WriteSemanticFrames("a", "p", KsNNSemanticOnnx, written, nullptr, false), KsNN_Error);
    EXPECT_EQ(written, 0);
}

TEST_F(SemanticSearch, AFrameWithoutAVectorIsAFailureThatSaysSo) {
    writeClip("a", {"spoken"});
    EXPECT_EQ(writeFrames("a"), 1);
    ASSERT_EQ(send("POST", KsNNDatabase::getSemanticIndex() + "/_doc?refresh=true", R"({"mediaGuid":"b"})"),
              201U);
    std::vector<KsNNSearchResults> results;
    EXPECT_EQ(mStore.SemanticSearch("text", "", 0, results, 5, KsNNSemanticOnnx, false), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::SemanticSearch err: "));
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(SemanticSearch, DeletedFramesAreGoneAndOthersStay) {
    writeClip("a", {"first", "second"});
    writeClip("b", {"third"});
    EXPECT_EQ(writeFrames("a"), 2);
    EXPECT_EQ(writeFrames("b"), 1);
    EXPECT_EQ(mStore.DeleteSemanticFrames({"a", "unknown"}, false), KsNN_Success) << mStore.GetErrorStr();
    EXPECT_THAT(find("first", 10), ElementsAre(Field(&KsNNSearchResults::text, "third")));
    EXPECT_EQ(writeFrames("a"), 2);
}

TEST_F(SemanticSearch, ModelsThatCannotBeLoadedLeaveTheFormerOnes) {
    EXPECT_THROW(mStore.LoadSemanticSearchModels("/nonexistent", "", KsNNSemanticOnnx, false),
                 Ort::Exception);
    writeClip("a", {"still embedded"});
    EXPECT_EQ(writeFrames("a"), 1);
}

TEST_F(SemanticSearch, CopiesShareTheModels) {
    writeClip("a", {"one text"});
    auto copy = std::make_unique<KsNNDatabase>(mStore);
    int written = 0;
    EXPECT_EQ(copy->WriteSemanticFrames("a", "p", KsNNSemanticOnnx, written, nullptr, false), KsNN_Success);
    copy.reset();
    EXPECT_THAT(find("one text", 5), SizeIs(1));
}

TEST_F(SemanticSearch, UnknownRoutesFailWithoutAReport) {
    const auto unknown = static_cast<KsNNDBSemanticSearchImpl>(7);
    EXPECT_EQ(mStore.LoadSemanticSearchModels(models(), "", unknown, false), KsNN_Error);
    EXPECT_EQ(mStore.GetErrorStr(), "");
}

TEST_F(SemanticSearch, TheSelfTestEndsWithTheModels) {
    // The file with the expected numbers is not part of an installation; what matters is how far it gets.
    EXPECT_EQ(mStore.testInternals(models(), "libortextensions.so"), KsNN_Error);
    EXPECT_THAT(mStore.GetErrorStr(), HasSubstr("KsNNDatabase::testInternals err: Can't open file"));
}

TEST_F(ScriptedStore, SemanticSearchSendsTheScriptAndScalesTheScores) {
    ASSERT_EQ(mStore->LoadSemanticSearchModels(models(), "", KsNNSemanticOnnx, false), KsNN_Success);
    const auto frame = [](double score) {
        return R"({"_id":"x","_score":)" + std::to_string(score) +
               R"(,"_source":{"mediaGuid":"m","fileName":"f","projectName":"p","framePositionMS":40,)"
               R"("imageDescription":"d"}})";
    };
    mServer.script(
        {ok(), ok(), hits(frame(1.5) + "," + frame(1.2) + "," + frame(0.8) + R"(,{"_id":"damaged"})")});
    std::vector<KsNNSearchResults> results;
    EXPECT_EQ(mStore->SemanticSearch("text", "p", 0.9F, results, 0, KsNNSemanticOnnx, false), KsNN_Error);
    EXPECT_THAT(results, ElementsAre(Field(&KsNNSearchResults::score, FloatNear(0.999F, 1e-6F)),
                                     Field(&KsNNSearchResults::score, FloatNear(0.6F, 1e-5F)),
                                     Field(&KsNNSearchResults::score, 0.0F)));
    const std::string body = mServer.requests().at(2).body;
    EXPECT_THAT(
        body, HasSubstr(R"("source":"cosineSimilarity(params.semanticVector,\"semanticImageVector\")+1.0")"));
    EXPECT_EQ(body.find("\"size\""), std::string::npos);
}

} // namespace
} // namespace kestrel_test
