// Meant for ThreadSanitizer as well: the library's own accesses from several threads must not race.

#include "kestrelml/stt/KestrelMLCythonIF.h"
#include "kestrelml/stt/KsNNSpeechToTextCYTHON.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

std::string dependencies() {
    const char* folder = std::getenv("KESTREL_DEPS_DIR");
    return folder ? folder : ".deps";
}

KsNNSpeechToTextCYTHON makeEngine() {
    return {0, 0, 0, false, dependencies() + "/models", testing::TempDir()};
}

std::vector<std::int16_t> recording(const std::string& name) {
    std::ifstream file(dependencies() + "/speech/" + name, std::ios::binary);
    file.seekg(44); // the header
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(std::int16_t));
    return samples;
}

/// Two sentences with three seconds between, which the recogniser takes one by one: there is progress to see
/// before the end.
std::vector<std::int16_t> twoSentences() {
    std::vector<std::int16_t> samples = recording("librivox_2.wav");
    samples.resize(samples.size() + 48000);
    const std::vector<std::int16_t> second = recording("librivox_5.wav");
    samples.insert(samples.end(), second.begin(), second.end());
    return samples;
}

/// Repeats a call on another thread until destroyed.
class Repeater {
public:
    explicit Repeater(std::function<void()> call)
        : mThread([this, call = std::move(call)] {
              while (!mStop) {
                  call();
                  std::this_thread::yield();
              }
          }) {}
    Repeater(const Repeater&) = delete;
    Repeater& operator=(const Repeater&) = delete;
    ~Repeater() {
        mStop = true;
        mThread.join();
    }

private:
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

class BridgeThreads : public testing::Test {
protected:
    void TearDown() override { KsNNSpeechToTextCYTHON::Shutdown(); }

    KsNN_ErrorCode upload(KsNNSpeechToTextCYTHON& engine) const {
        return engine.ProcessAudio(mSamples.data(), 0, mSamples.size(), "clip", "project", false);
    }
    KsNN_ErrorCode finalize(KsNNSpeechToTextCYTHON& engine, KsNNDB_STTClipEntry& entry) const {
        return engine.FinalizeTranscript(entry, mSamples.size(), "clip", "project", "", "en", false);
    }

    const std::vector<std::int16_t> mSamples = twoSentences();
};

TEST_F(BridgeThreads, TheRunningEngineIsPolledAndThenCancelled) {
    ASSERT_GT(mSamples.size(), 16000U) << "the recordings are missing";
    KsNNSpeechToTextCYTHON engine = makeEngine();
    KsNNDB_STTClipEntry entry;
    std::atomic<float> highest{0.0F};
    {
        ASSERT_EQ(upload(engine), KsNN_Success) << engine.GetErrorStr();
        const Repeater poll([&] {
            float progress = -1.0F;
            EXPECT_EQ(engine.GetProgress(progress, false), KsNN_Success);
            EXPECT_GE(progress, highest);
            highest = progress;
        });
        EXPECT_EQ(finalize(engine, entry), KsNN_Success) << engine.GetErrorStr();
    }
    EXPECT_GT(highest, 0.0F);
    EXPECT_FALSE(entry.segments.empty());

    ASSERT_EQ(upload(engine), KsNN_Success);
    const Repeater cancel([&] { EXPECT_EQ(engine.Cancel(false), KsNN_Success); });
    EXPECT_EQ(finalize(engine, entry), KsNN_Error);
    EXPECT_THAT(engine.GetErrorStr(), testing::HasSubstr("STT transcription cancelled"));
}

TEST_F(BridgeThreads, PollingOutlivesShutdownAndNewBridges) {
    KsNNSpeechToTextCYTHON first = makeEngine();
    ASSERT_EQ(first.SetModelDir("", false), KsNN_Success);
    std::atomic<int> polls{0};
    const auto poll = [&] {
        KsNNSpeechToTextCYTHON other = makeEngine();
        try {
            float progress = 0.0F;
            other.GetProgress(progress, false);
            other.Cancel(false);
        } catch (const char*) { // this thread was the first after a shutdown, and may not enter the module
        }
        ++polls;
    };
    const Repeater one(poll);
    const Repeater two(poll);
    while (polls < 5000) {
        KsNNSpeechToTextCYTHON::Shutdown();
        std::this_thread::yield();
    }
}

TEST_F(BridgeThreads, AnEngineThatOwnsTheShutdownTakesTheBridgeWithIt) {
    float progress = -1.0F;
    {
        KsNNSpeechToTextCYTHON owner(0, 0, 0, true, dependencies() + "/models", testing::TempDir());
        ASSERT_EQ(owner.Cancel(false), KsNN_Success);
        Set_TranscribeProgress(0.5F);
        EXPECT_EQ(Get_TranscribeCancel(), 1);
        EXPECT_EQ(owner.GetProgress(progress, false), KsNN_Success);
        EXPECT_FLOAT_EQ(progress, 0.5F);
    }
    EXPECT_EQ(Get_TranscribeCancel(), 0);
    EXPECT_EQ(makeEngine().GetProgress(progress, false), KsNN_Success);
    EXPECT_FLOAT_EQ(progress, 0.0F);
}

} // namespace
