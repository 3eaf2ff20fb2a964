#include "apps/kestrel/clips/ClipAudio.h"

#include "apps/kestrel/clips/ModuleTranscriber.h"
#include "apps/kestrel/clips/VoiceReel.h"
#include "apps/kestrel/media/QuietPoint.h"
#include "tests/app/TestMedia.h"

#include <gmock/gmock.h>

namespace kestrel {
namespace {

namespace fs = std::filesystem;

/// Not a constant: the tests are listed without the variable.
fs::path depsFolder() {
    const char* const folder = std::getenv("KESTREL_DEPS_DIR");
    return folder == nullptr ? ".deps" : folder;
}

constexpr std::size_t kLong = std::size_t{600} * kSampleRate;

class ClipAudioTest : public TestMedia {
protected:
    fs::path makeSpeech(const char* name) const {
        return make(name, fmt::format("-i {}/speech/english_short.wav", depsFolder().string()));
    }

    /// Seconds of speech in the whole file.
    double spoken(const fs::path& file) {
        mAudio = std::make_unique<ClipAudio>(file, std::nullopt, mDetector, Callbacks{});
        while (mAudio->next(kLong, {})) {
        }
        return static_cast<double>(lengthOf(mAudio->voiced())) / kSampleRate;
    }

    SpeechDetector mDetector{depsFolder() / "models/voices/detector.onnx"};
    std::unique_ptr<ClipAudio> mAudio;
};

TEST_F(ClipAudioTest, NoiseIsNotRaised) {
    EXPECT_EQ(spoken(make("noise.wav", "-f lavfi -i anoisesrc=a=0.0005:d=20:c=pink")), 0.0);
    EXPECT_THAT(mAudio->warnings(), testing::IsEmpty());
}

TEST(AudioPart, SpeechThatIsDroppedIsNotLookedForInTheRest) {
    AudioPart part{1000, std::vector<std::int16_t>(500), {{1050, 1100}, {1150, 1300}, {1350, 1400}}};
    part.dropUpTo(1200);
    EXPECT_EQ(part.start, 1200U);
    EXPECT_EQ(part.end(), 1500U);
    ASSERT_EQ(part.voiced.size(), 2U);
    EXPECT_EQ(part.voiced.front().begin, 1200U);
    EXPECT_EQ(part.voiced.front().end, 1300U);
    part.dropUpTo(2000);
    EXPECT_TRUE(part.samples.empty());
    EXPECT_TRUE(part.voiced.empty());
}

TEST_F(ClipAudioTest, AFileThatIsCutShortSaysHowMuchWasRead) {
    const fs::path file = makeSpeech("cut.flac");
    fs::resize_file(file, fs::file_size(file) / 2);
    spoken(file);
    EXPECT_THAT(mAudio->warnings(),
                testing::Contains(testing::ContainsRegex("only 1[0-9] of 3[01] s could be read")));
}

TEST_F(ClipAudioTest, PartsAreCutInPausesAndLoseNothing) {
    ClipAudio whole(makeSpeech("plain.wav"), std::nullopt, mDetector, {});
    const auto all = whole.next(kLong, {})->samples;
    ClipAudio parts(mFolder / "plain.wav", std::nullopt, mDetector, {});
    std::vector<std::int16_t> joined;
    bool hasGivenBack = false;
    while (auto part = parts.next(std::size_t{8} * kSampleRate, {})) {
        EXPECT_EQ(part->start, joined.size());
        EXPECT_LE(part->samples.size(), std::size_t{8} * kSampleRate);
        if (!hasGivenBack) parts.giveBack(*part, part->start + part->samples.size() / 3);
        hasGivenBack = true;
        joined.insert(joined.end(), part->samples.begin(), part->samples.end());
    }
    ASSERT_EQ(joined.size(), all.size());
    for (std::size_t i = 0; i < all.size(); ++i)
        ASSERT_NEAR(joined[i], all[i], 1) << i;
    std::vector<float> sound(48'000, 0.25F);
    std::fill(sound.begin() + 20'000, sound.begin() + 24'000, 0.0001F);
    EXPECT_NEAR(static_cast<double>(quietestPoint(sound)), 22'000, 600);
}

TEST(UnrecognisedSpeech, IsWhatNoWordIsNear) {
    const auto second = [](double s) { return static_cast<std::size_t>(s * kSampleRate); };
    const std::vector<SampleRange> voiced{{second(1), second(10)}, {second(12), second(40)}};
    const auto found =
        unrecognisedSpeech(voiced, {{1000, 1500}, {2000, 9500}, {12'500, 15'000}, {30'000, 39'000}});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].begin, 16'000);
    EXPECT_EQ(found[0].spoken, 13'000);
    EXPECT_THAT(unrecognisedSpeech({{0, second(2.5)}}, {}), testing::IsEmpty());
    EXPECT_EQ(unrecognisedSpeech({{0, second(2)}, {second(4), second(7)}}, {}).at(0).spoken, 5000);
}

TEST(SlowMachine, ARunIsEndedBeforeTheServiceGivesUp) {
    using Seconds = std::chrono::duration<double>;
    EXPECT_EQ(affordableShare(Seconds(60), 0.001), 1.0) << "too early to tell";
    EXPECT_EQ(affordableShare(Seconds(300), 0.5), 1.0);
    EXPECT_NEAR(affordableShare(Seconds(100), 0.05), 390.0 / 2000.0, 1e-9);
    EXPECT_GT(affordableShare(Seconds(400), 0.0), 0.0);
    EXPECT_LT(affordableShare(Seconds(400), 0.0), 0.1);
}

KsNNDBEntrySeg said(const char* speaker, int startMs, int endMs) {
    KsNNDBEntrySeg segment;
    segment.speakerID = speaker;
    segment.wordStartsMS = {startMs};
    segment.wordEndsMS = {endMs};
    return segment;
}

TEST(VoiceReelTest, AVoiceKeepsItsLabelOverParts) {
    VoiceReel reel;
    KsNNDB_STTClipEntry first;
    first.segments = {said("1", 0, 9000), said("2", 10'000, 14'000), said("3", 15'000, 15'500)};
    reel.relabel(first);
    EXPECT_EQ(first.segments[1].speakerID, "2") << "before the first part there is nothing";
    std::vector<std::int16_t> audio(std::size_t{20} * kSampleRate, 1);
    std::fill(audio.begin() + std::ptrdiff_t{10} * kSampleRate, audio.end(), std::int16_t{2});
    reel.learn(first, audio);
    ASSERT_EQ(reel.samples().size(), std::size_t{8 + 3 + 4 + 3} * kSampleRate)
        << "the third voice is too short";
    EXPECT_EQ(reel.samples()[0], 1);
    EXPECT_EQ(reel.samples()[std::size_t{12} * kSampleRate], 2);

    // The engine numbers as it hears them, and hears somebody new; the third voice it cannot know again.
    KsNNDB_STTClipEntry second;
    second.segments = {said("2", 100, 8000), said("1", 10'900, 15'000), said("3", 18'500, 19'000),
                       said("1", 20'000, 22'000), said("2", 23'000, 24'000)};
    reel.relabel(second);
    ASSERT_EQ(second.segments.size(), 3U);
    EXPECT_EQ(second.segments[0].speakerID, "4");
    EXPECT_EQ(second.segments[1].speakerID, "2");
    EXPECT_EQ(second.segments[2].speakerID, "1");
    EXPECT_EQ(second.segments[0].wordStartsMS[0], 500);
}

} // namespace
} // namespace kestrel
