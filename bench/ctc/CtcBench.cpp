// The CTC engine on ten minutes of speech beside ONNX Runtime alone, which runs the same chunks, prepared
// beforehand, and does nothing with the scores. Both run in turn, several rounds; printed are medians and
// the ratios to the peer. Then two engines at once on two threads, beside the same work in turn.
//
//   kestrel_ctc_bench <model folder> <speech folder> [rounds]

#include "kestrelml/stt/KsNNSpeechToTextWav2Vec2ONNX.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <numeric>
#include <onnxruntime_cxx_api.h>
#include <thread>

namespace {
std::atomic<std::size_t> allocations{0};
} // namespace

// Counts what this program, the library and ONNX Runtime allocate by `new`.
void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMinuteSamples = std::size_t{60} * 16000;
constexpr std::size_t kChunk = 160000;
constexpr std::size_t kOverlap = 3200;
constexpr std::size_t kBatch = 4;
constexpr std::size_t kWavHeader = 44;
constexpr const char* kLanguage = "English (phonemes)";

/// Ten minutes out of the English recordings, repeated.
std::vector<std::int16_t> recording(const fs::path& folder) {
    std::vector<std::int16_t> samples;
    while (samples.size() < 10 * kMinuteSamples) {
        for (const char* name : {"english_long.wav", "english_short.wav", "conversation_en.wav"}) {
            std::ifstream file(folder / name, std::ios::binary);
            file.seekg(kWavHeader);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            if (bytes.empty()) throw std::runtime_error("cannot read " + (folder / name).string());
            const std::size_t begin = samples.size();
            samples.resize(begin + bytes.size() / sizeof(std::int16_t));
            bytes.copy(reinterpret_cast<char*>(&samples[begin]), bytes.size() / 2 * 2);
        }
    }
    samples.resize(10 * kMinuteSamples);
    return samples;
}

/// Whole chunks as the engine cuts them, ready for the model.
std::vector<std::vector<float>> preparedChunks(const std::vector<std::int16_t>& samples) {
    std::vector<std::vector<float>> chunks;
    for (std::size_t begin = 0; begin + kOverlap < samples.size(); begin += kChunk - kOverlap) {
        const std::size_t end = std::min(begin + kChunk, samples.size());
        std::vector<float>& chunk = chunks.emplace_back(samples.begin() + static_cast<std::ptrdiff_t>(begin),
                                                        samples.begin() + static_cast<std::ptrdiff_t>(end));
        const float size = static_cast<float>(chunk.size());
        const float mean = std::accumulate(chunk.begin(), chunk.end(), 0.0F) / size;
        const float squares = std::inner_product(chunk.begin(), chunk.end(), chunk.begin(), 0.0F);
        const float deviation = std::sqrt(squares / size - mean * mean);
        for (float& sample : chunk)
            sample = (sample - mean) / deviation;
    }
    return chunks;
}

struct Cost {
    double wall = 0;
    double processor = 0;
};

Cost costOf(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    const std::clock_t clock = std::clock();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(),
            static_cast<double>(std::clock() - clock) / CLOCKS_PER_SEC};
}

class Runtime {
public:
    explicit Runtime(const fs::path& model) : mSession(mEnvironment, model.c_str(), Ort::SessionOptions()) {}

    void run(std::vector<std::vector<float>>& chunks) {
        const char* const input = "samples";
        const char* const output = "scores";
        const auto memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU);
        for (std::vector<float>& chunk : chunks) {
            const std::array<std::int64_t, 2> shape{1, static_cast<std::int64_t>(chunk.size())};
            const auto tensor = Ort::Value::CreateTensor<float>(memory, chunk.data(), chunk.size(),
                                                                shape.data(), shape.size());
            mSession.Run(Ort::RunOptions{nullptr}, &input, &tensor, 1, &output, 1);
        }
    }

private:
    Ort::Env mEnvironment{ORT_LOGGING_LEVEL_WARNING, ""};
    Ort::Session mSession;
};

KsNNSpeechToTextWav2Vec2ONNX makeEngine() {
    KsNNSpeechToTextWav2Vec2ONNX engine(kChunk, kOverlap, kBatch);
    if (engine.setLanguage(kLanguage) != KsNN_Success) throw std::runtime_error("the model is missing");
    return engine;
}

void transcribe(KsNNSpeechToTextWav2Vec2ONNX& engine, const std::vector<std::int16_t>& samples) {
    std::string text;
    std::vector<int> starts;
    std::vector<int> ends;
    // As a host reads a file, second by second.
    for (std::size_t begin = 0; begin < samples.size(); begin += 16000)
        engine.ProcessAudio(&samples[begin], std::min<std::size_t>(16000, samples.size() - begin), false,
                            false);
    if (engine.FinalizeTranscript(text, starts, ends, 0, false) != KsNN_Success || starts.size() < 500)
        throw std::runtime_error("no transcript");
}

/// Medians, and the least processor time, which other programs on the machine disturb least.
struct Summary {
    double wall;
    double processor;
    double leastProcessor;
};

Summary summaryOf(const std::vector<Cost>& costs) {
    std::vector<double> walls;
    std::vector<double> processors;
    for (const Cost& cost : costs) {
        walls.push_back(cost.wall);
        processors.push_back(cost.processor);
    }
    std::sort(walls.begin(), walls.end());
    std::sort(processors.begin(), processors.end());
    return {walls[walls.size() / 2], processors[processors.size() / 2], processors.front()};
}

void print(const char* name, const std::vector<Cost>& costs, const std::vector<Cost>& peer) {
    const Summary ours = summaryOf(costs);
    const Summary theirs = summaryOf(peer);
    std::printf("%-20s %7.2f s (x %.3f), processor %7.2f s (x %.3f), least %7.2f s (x %.3f)\n", name,
                ours.wall, ours.wall / theirs.wall, ours.processor, ours.processor / theirs.processor,
                ours.leastProcessor, ours.leastProcessor / theirs.leastProcessor);
    std::fflush(stdout);
}

void printAllocations(Runtime& runtime, const std::vector<std::vector<float>>& chunks) {
    KsNNSpeechToTextWav2Vec2ONNX engine = makeEngine();
    const auto countedIn = [](const std::function<void()>& work) {
        const std::size_t before = allocations;
        work();
        return allocations - before;
    };
    const std::vector<float> samples(kBatch * kChunk, 0.0F);
    const auto feed = [&](std::size_t count) {
        return countedIn([&] { engine.ProcessAudio(samples.data(), count, false, false); });
    };
    const std::size_t first = kChunk - 1;
    const std::size_t rest = (kBatch - 1) * (kChunk - kOverlap) + 1;
    std::vector<std::vector<float>> batch(chunks.begin(), chunks.begin() + kBatch);
    runtime.run(batch); // the first run allocates more than later ones
    const std::size_t alone = countedIn([&] { runtime.run(batch); });
    feed(first);
    feed(rest); // likewise
    const std::size_t within = feed(kChunk - kOverlap - 1);
    const std::size_t whole = feed(rest);
    std::printf("allocations: %zu for %zu samples that complete no chunk; %zu for a batch of %zu chunks, "
                "of which ONNX Runtime alone makes %zu\n",
                within, kChunk - kOverlap - 1, whole, kBatch, alone);
}

} // namespace

int main(int count, char** arguments) try {
    if (count < 3) {
        std::fprintf(stderr, "usage: kestrel_ctc_bench <model folder> <speech folder> [rounds]\n");
        return 2;
    }
    setenv("KESTREL_MODEL_DIR", arguments[1], 1);
    const std::vector<std::int16_t> samples = recording(arguments[2]);
    std::vector<std::vector<float>> chunks = preparedChunks(samples);
    Runtime runtime(fs::path(arguments[1]) / "wav2vec2" / "english-phonemes.onnx");
    KsNNSpeechToTextWav2Vec2ONNX engine = makeEngine();
    KsNNSpeechToTextWav2Vec2ONNX second = makeEngine();
    printAllocations(runtime, chunks);

    const int rounds = count > 3 ? std::atoi(arguments[3]) : 5;
    std::vector<Cost> alone;
    std::vector<Cost> ours;
    std::vector<Cost> inTurn;
    std::vector<Cost> atOnce;
    for (int round = 0; round < rounds; ++round) {
        alone.push_back(costOf([&] { runtime.run(chunks); }));
        ours.push_back(costOf([&] { transcribe(engine, samples); }));
    }
    std::printf("ten minutes of speech, %zu chunks, %d rounds\n", chunks.size(), rounds);
    print("ONNX Runtime alone", alone, alone);
    print("the engine", ours, alone);
    for (int round = 0; round < rounds; ++round) {
        inTurn.push_back(costOf([&] {
            transcribe(engine, samples);
            transcribe(second, samples);
        }));
        atOnce.push_back(costOf([&] {
            std::thread other([&] { transcribe(second, samples); });
            transcribe(engine, samples);
            other.join();
        }));
    }
    print("two engines in turn", inTurn, inTurn);
    print("two engines at once", atOnce, inTurn);
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
