#include "apps/kestrel/media/AudioReader.h"

#include "apps/kestrel/base/Failure.h"

#include <Poco/TemporaryFile.h>
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

namespace kestrel {
namespace {

namespace fs = std::filesystem;

class AudioReaderTest : public testing::Test {
protected:
    AudioReaderTest() : mFolder(Poco::TemporaryFile::tempName()) { fs::create_directories(mFolder); }
    ~AudioReaderTest() override { fs::remove_all(mFolder); }

    /// Has ffmpeg make a file.
    fs::path make(const char* name, const std::string& arguments) const {
        const fs::path file = mFolder / name;
        const std::string command = fmt::format("ffmpeg -v error -y {} {}", arguments, file.string());
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return file;
    }

    static std::vector<std::int16_t> readAll(AudioReader& reader) {
        std::vector<std::int16_t> all;
        for (auto some = reader.read(1000); !some.empty(); some = reader.read(1000))
            all.insert(all.end(), some.begin(), some.end());
        return all;
    }

    /// Time of the first loud sample, in seconds.
    static double firstSound(const std::vector<std::int16_t>& samples) {
        const auto loud = std::find_if(samples.begin(), samples.end(),
                                       [](std::int16_t sample) { return std::abs(sample) > 1000; });
        return static_cast<double>(loud - samples.begin()) / kSampleRate;
    }

    std::string failure(const fs::path& file) const {
        try {
            AudioReader reader(file);
            return "none";
        } catch (const Failure& error) {
            return error.what();
        }
    }

    fs::path mFolder;
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

TEST_F(AudioReaderTest, SaysWhatIsWrong) {
    std::ofstream(mFolder / "words.txt") << "nothing but words\n";
    std::ofstream(mFolder / "words.mp4") << "nothing but words\n";
    std::ofstream(mFolder / "list.m3u8")
        << "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1:9/a.ts\n";
    const fs::path silent = make("silent.mp4", "-f lavfi -i testsrc=d=1:s=64x64");
    EXPECT_THAT(failure(mFolder / "words.txt"), testing::HasSubstr("is not a media file"));
    EXPECT_THAT(failure(mFolder / "words.mp4"), testing::HasSubstr("is not a media file"));
    EXPECT_THAT(failure(mFolder / "missing.mp4"), testing::HasSubstr("No such file"));
    EXPECT_EQ(failure(silent), "holds no sound");
    EXPECT_THAT(failure(mFolder / "list.m3u8"), testing::HasSubstr("is a playlist"));
}

} // namespace
} // namespace kestrel
