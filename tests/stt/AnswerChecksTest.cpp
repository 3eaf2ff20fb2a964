#include "kestrelml/stt/AnswerChecks.h"

#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>

namespace {

using namespace kestrelml::stt;
using testing::ElementsAre;

Answer parse(const std::string& json) {
    return Poco::JSON::Parser().parse(json).extract<Answer>();
}

std::string finalizeAnswer(const std::string& segments) {
    return R"({"success":true,"total_samples":16000,"audioTracks":"A1","mediaGuid":"m","projectGuid":"p",)"
           R"("model":"whisper-base","device":"cpu","transcriptSegments":[)" +
           segments + "]}";
}

KsNNDB_STTClipEntry readFinalized(const std::string& segments, KsNN_ErrorCode expected = KsNN_Success,
                                  KsNNDB_STTClipEntry entry = {}) {
    KsNNBase target("http://127.0.0.1/");
    EXPECT_EQ(checkFinalizeTranscript(parse(finalizeAnswer(segments)), entry, target, false), expected)
        << target.GetErrorStr();
    return entry;
}

TEST(AnswerReading, LanguagesComeInOrderOfTheirCodesUpToAFaultyOne) {
    KsNNBase target("http://127.0.0.1/");
    std::vector<KsNNLanguage> languages;
    EXPECT_EQ(checkGetSupportedLanguages(parse(R"({"success":true,"languages":{"zh":{"language":"Chinese"},)"
                                               R"("fr":{"language":"French","local":"Français"},)"
                                               R"("de":{"language":"German","local":"Deutsch"}}})"),
                                         languages, target, false),
              KsNN_Error);
    EXPECT_THAT(target.GetErrorStr(), testing::EndsWith(", checkGetSupportedLanguages error: \n"));
    std::string all;
    for (const KsNNLanguage& language : languages)
        all += language.code + " " + language.localName + " " + language.anglicizedName + ", ";
    EXPECT_EQ(all, "de Deutsch German, fr Français French, ");
}

TEST(AnswerReading, SegmentsAreAppendedToTheEntryAndOtherFieldsStay) {
    KsNNDB_STTClipEntry before;
    before.clipName = "clip";
    before.progressComplete = true;
    before.segments.resize(1);
    const KsNNDB_STTClipEntry entry =
        readFinalized(R"({"segment":0,"transcript":"two words","language":"en","speakerID":"2",)"
                      R"("wordStartsMS":[10,500],"wordEndsMS":[400,900],"wordConfidences":[97,31]},)"
                      R"({"segment":1,"transcript":"","language":"en","speakerID":"1",)"
                      R"("wordStartsMS":[],"wordEndsMS":[]})",
                      KsNN_Success, before);
    EXPECT_EQ(entry.model + entry.audioTracks + entry.clipName, "whisper-baseA1clip");
    EXPECT_FALSE(entry.progressComplete);
    ASSERT_EQ(entry.segments.size(), 3U);
    const KsNNDBEntrySeg& seg = entry.segments[1];
    EXPECT_EQ(seg.transcript + seg.mediaGuid + seg.projectGuid + seg.speakerID + seg.speakerGuid,
              "two wordsmp2Unk");
    EXPECT_THAT(seg.wordStartsMS, ElementsAre(10, 500));
    EXPECT_THAT(seg.wordConfidences, ElementsAre(97, 31));
    EXPECT_THAT(seg.wordEndsMS, ElementsAre(400, 900));
    EXPECT_THAT(entry.segments[2].wordStartsMS, ElementsAre());
    EXPECT_THAT(entry.segments[2].wordConfidences, ElementsAre());
}

TEST(AnswerReading, SilenceBecomesOneEmptySegment) {
    const KsNNDB_STTClipEntry entry = readFinalized("");
    ASSERT_EQ(entry.segments.size(), 1U);
    const KsNNDBEntrySeg& seg = entry.segments[0];
    EXPECT_EQ(seg.segment, 0);
    EXPECT_EQ(seg.transcript + seg.language + seg.speakerID + seg.mediaGuid, "UnkUnkm");
}

TEST(AnswerReading, AFaultySegmentFailsAndKeepsThoseBefore) {
    const std::string good =
        R"({"segment":0,"transcript":"a","language":"en","speakerID":"1","wordStartsMS":[1],"wordEndsMS":[2]})";
    for (const std::string faulty : {R"("wordStartsMS":[3],"wordEndsMS":[4])", R"("speakerID":"1")",
                                     R"("speakerID":"1","wordStartsMS":[3,4],"wordEndsMS":[4])"}) {
        const std::string segments =
            good + R"(,{"segment":1,"transcript":"b c","language":"en",)" + faulty + "}";
        EXPECT_EQ(readFinalized(segments, KsNN_Error).segments.size(), 1U) << faulty;
    }
}

TEST(AnswerReading, ATranscriptSegmentWithoutSpeakerContinuesThePreviousOne) {
    KsNNBase target("http://127.0.0.1/");
    KsNNTranscript transcript;
    ASSERT_EQ(buildTranscriptFromJson(
                  parse(R"({"success":true,"model":"whisper-base","device":"cpu","segments":[)"
                        R"({"text":"one","language":"en","speakerID":"7",)"
                        R"("words":[{"startMs":5,"endMs":20,"word":"one","probability":0.75}]},)"
                        R"({"text":"two","language":"en","words":[]}]})"),
                  transcript, target),
              KsNN_Success);
    ASSERT_EQ(transcript.segments.size(), 2U);
    EXPECT_EQ(transcript.device, "cpu");
    EXPECT_EQ(transcript.segments[0].words.at(0).endMs, 20);
    EXPECT_FLOAT_EQ(transcript.segments[0].words.at(0).probability, 0.75F);
    EXPECT_EQ(transcript.segments[1].text + transcript.segments[1].speakerID, "two7");
}

TEST(AnswerReading, ProgressIsZeroUnlessItCanBeRead) {
    KsNNBase target("http://127.0.0.1/");
    float progress = 0.5F;
    EXPECT_EQ(checkGetProgress(parse(R"({"success":true,"progress":0.25})"), progress, target, false),
              KsNN_Success);
    EXPECT_FLOAT_EQ(progress, 0.25F);
    EXPECT_EQ(checkGetProgress(parse(R"({"success":false,"progress":0.25})"), progress, target, false),
              KsNN_Error);
    EXPECT_FLOAT_EQ(progress, 0.0F);
}

} // namespace
