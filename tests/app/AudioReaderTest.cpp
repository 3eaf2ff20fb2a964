#include "apps/kestrel/media/AudioReader.h"

#include "apps/kestrel/base/Failure.h"
#include "tests/app/TestMedia.h"

#include <gmock/gmock.h>

#include <cmath>
#include <fstream>

namespace kestrel {
namespace {

namespace fs = std::filesystem;

class AudioReaderTest : public TestMedia {
protected:
    static std::vector<float> readAll(AudioReader& reader) {
        std::vector<float> all;
        for (auto some = reader.read(1000); !some.empty(); some = reader.read(1000))
            all.insert(all.end(), some.begin(), some.end());
        return all;
    }

    /// Time of the first loud sample, in seconds.
    static double firstSound(const std::vector<float>& samples) {
        const auto loud = std::find_if(samples.begin(), samples.end(),
                                       [](float sample) { return std::abs(sample) > 0.03F; });
        return static_cast<double>(loud - samples.begin()) / kSampleRate;
    }

    /// Loudness of the middle of a file, from 0 to 1.
    static double loudness(const fs::path& file, TrackChoice tracks = {}) {
        AudioReader reader(file, tracks);
        const auto samples = readAll(reader);
        double energy = 0.0;
        for (std::size_t i = samples.size() / 3; i < samples.size() * 2 / 3; ++i)
            energy += static_cast<double>(samples[i]) * samples[i];
        return std::sqrt(energy * 3 / static_cast<double>(samples.size()));
    }

    std::string failure(const fs::path& file, TrackChoice tracks = {}) const {
        try {
            AudioReader reader(file, tracks);
            return "none";
        } catch (const Failure& error) {
            return error.what();
        }
    }
};

// A second of silence, then a tone.
const char* const kLateTone = "-f lavfi -i \"aevalsrc=0.5*gt(t\\,1)*sin(2000*t):s=44100:c=stereo:d=3\"";

TEST_F(AudioReaderTest, EveryContainerGivesMonoAtSixteenThousand) {
    const std::string video = std::string("-f lavfi -i testsrc=d=3:s=64x64 ") + kLateTone;
    for (const auto& [name, arguments] :
         {std::pair{"tone.wav", std::string(kLateTone)}, std::pair{"tone.mp3", std::string(kLateTone)},
          std::pair{"tone.mp4", video}, std::pair{"tone.mkv", video + " -c:a flac"}}) {
        AudioReader reader(make(name, arguments));
        const auto samples = readAll(reader);
        EXPECT_NEAR(static_cast<double>(samples.size()) / kSampleRate, 3.0, 0.1) << name;
        EXPECT_NEAR(firstSound(samples), 1.0, 0.03) << name;
        EXPECT_NEAR(reader.claimedDuration(), 3.0, 0.1) << name;
        EXPECT_EQ(reader.damagedPieces(), 0U) << name;
        EXPECT_THAT(reader.trackDescription(), testing::HasSubstr("audio track 1 of 1: ")) << name;
    }
}

TEST_F(AudioReaderTest, SoundThatBeginsLateKeepsItsTime) {
    const fs::path file =
        make("late.mkv", std::string("-f lavfi -i testsrc=d=6:s=64x64 -itsoffset 2.5 ") + kLateTone);
    AudioReader reader(file);
    EXPECT_NEAR(firstSound(readAll(reader)), 3.5, 0.03);
}

TEST_F(AudioReaderTest, ADamagedFileGivesWhatIsLeft) {
    const fs::path file = make("tone.flac", kLateTone);
    std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
    const auto half = static_cast<std::streamoff>(fs::file_size(file) / 2);
    bytes.seekp(half);
    bytes << std::string(500, '\x55');
    bytes.close();
    AudioReader reader(file);
    EXPECT_GT(readAll(reader).size(), static_cast<std::size_t>(kSampleRate));
    EXPECT_GT(reader.damagedPieces(), 0U);
}

TEST_F(AudioReaderTest, ChannelsInOppositePhaseAreHeard) {
    const std::string tone = "0.4*sin(2500*t)";
    const auto stereo = [&](const char* name, const std::string& right, const char* options = "") {
        return make(name, fmt::format("-f lavfi -i \"aevalsrc={}|{}:s=48000:d=4\" {}", tone, right, options));
    };
    const double plain = loudness(stereo("same.wav", tone));
    EXPECT_NEAR(plain, 0.283, 0.01);
    EXPECT_NEAR(loudness(stereo("opposed.wav", "-" + tone)), plain, 0.01);
    EXPECT_NEAR(loudness(stereo("opposed.opus", "-" + tone, "-b:a 128k")), plain, 0.03);
    EXPECT_NEAR(loudness(stereo("left.wav", "0")), plain / 2, 0.01);
    EXPECT_GT(
        loudness(make("opposed.mkv", fmt::format("-f lavfi -i \"aevalsrc={0}:s=48000:d=4\" -f lavfi -i "
                                                 "\"aevalsrc=-{0}:s=48000:d=4\" -map 0 -map 1 -c:a flac",
                                                 tone)),
                 {TrackChoice::Kind::All, 0}),
        0.2);
}

TEST_F(AudioReaderTest, TracksAreReadAloneOrMixed) {
    const fs::path file =
        make("tracks.mkv", "-f lavfi -i \"aevalsrc=0:s=48000:d=4\" -f lavfi -i "
                           "\"aevalsrc=0.4*sin(2500*t):s=44100:d=3\" -map 0 -map 1 -c:a flac");
    EXPECT_LT(loudness(file), 0.001);
    EXPECT_NEAR(loudness(file, {TrackChoice::Kind::One, 2}), 0.283, 0.01);
    AudioReader mixed(file, {TrackChoice::Kind::All, 0});
    EXPECT_EQ(mixed.trackDescription(), "all 2 audio tracks, mixed");
    EXPECT_NEAR(static_cast<double>(readAll(mixed).size()) / kSampleRate, 4.0, 0.1);
    EXPECT_NEAR(loudness(file, {TrackChoice::Kind::All, 0}), 0.141, 0.01);
    EXPECT_EQ(failure(file, {TrackChoice::Kind::One, 3}), "has no audio track 3; it has 2");
}

TEST_F(AudioReaderTest, SaysWhatIsWrong) {
    std::ofstream(mFolder / "words.txt") << "nothing but words\n";
    std::ofstream(mFolder / "words.mp4") << "nothing but words\n";
    std::ofstream(mFolder / "list.m3u8")
        << "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1:9/a.ts\n";
    const fs::path silent = make("silent.mp4", "-f lavfi -i testsrc=d=1:s=64x64");
    EXPECT_THAT(failure(mFolder / "words.txt"), testing::HasSubstr("is not a media file"));
    EXPECT_THAT(failure(mFolder / "words.mp4"), testing::HasSubstr("is not a media file"));
    EXPECT_THAT(failure(mFolder / "missing.mp4"), testing::HasSubstr("No such file"));
    EXPECT_EQ(failure(silent), "holds no audio");
    EXPECT_THAT(failure(mFolder / "list.m3u8"), testing::HasSubstr("is a playlist"));
}

} // namespace
} // namespace kestrel
