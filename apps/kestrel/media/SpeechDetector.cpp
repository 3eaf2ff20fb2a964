#include "apps/kestrel/media/SpeechDetector.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/media/AudioReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <onnxruntime_cxx_api.h>

namespace kestrel {

namespace {

// The model looks at windows of 32 ms, each with the end of the one before it, and carries a state along.
constexpr std::size_t kWindow = 512;
constexpr std::size_t kContext = 64;
constexpr std::size_t kState = 128;
constexpr std::size_t kWindowsAtOnce = 4096;

constexpr float kVoiceBegins = 0.5F;
constexpr float kVoiceGoesOn = 0.35F;
constexpr std::size_t kShortestPause = kSampleRate / 2;
constexpr std::size_t kShortestVoice = kSampleRate / 5;

using Shape3 = std::array<std::int64_t, 3>;

} // namespace

class SpeechDetector::Model {
public:
    explicit Model(const std::filesystem::path& file)
        : mEnvironment(ORT_LOGGING_LEVEL_ERROR, ""), mSession(mEnvironment, file.c_str(), oneThread()),
          mMemory(Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU)) {}

    /// Appends a probability for each window; `hidden` and `cell` are carried from call to call.
    void run(std::vector<float>& windows, std::vector<float>& hidden, std::vector<float>& cell,
             std::vector<float>& probabilities) {
        const std::array<std::int64_t, 2> shape{
            static_cast<std::int64_t>(windows.size() / (kContext + kWindow)),
            static_cast<std::int64_t>(kContext + kWindow)};
        const Shape3 state{1, 1, static_cast<std::int64_t>(kState)};
        const std::array<const char*, 3> inputs{"input", "h", "c"};
        const std::array<Ort::Value, 3> values{
            Ort::Value::CreateTensor<float>(mMemory, windows.data(), windows.size(), shape.data(),
                                            shape.size()),
            Ort::Value::CreateTensor<float>(mMemory, hidden.data(), hidden.size(), state.data(),
                                            state.size()),
            Ort::Value::CreateTensor<float>(mMemory, cell.data(), cell.size(), state.data(), state.size())};
        const std::vector<std::string> names = mSession.GetOutputNames();
        const std::array<const char*, 3> outputs{names.at(0).c_str(), names.at(1).c_str(),
                                                 names.at(2).c_str()};
        const std::vector<Ort::Value> found =
            mSession.Run(Ort::RunOptions{nullptr}, inputs.data(), values.data(), values.size(),
                         outputs.data(), outputs.size());
        const float* const voiced = found[0].GetTensorData<float>();
        probabilities.insert(probabilities.end(), voiced, voiced + shape[0]);
        std::copy_n(found[1].GetTensorData<float>(), kState, hidden.begin());
        std::copy_n(found[2].GetTensorData<float>(), kState, cell.begin());
    }

private:
    static Ort::SessionOptions oneThread() {
        Ort::SessionOptions options;
        options.SetIntraOpNumThreads(1);
        return options;
    }

    Ort::Env mEnvironment;
    Ort::Session mSession;
    Ort::MemoryInfo mMemory;
};

SpeechDetector::SpeechDetector(const std::filesystem::path& model) {
    try {
        mModel = std::make_unique<Model>(model);
    } catch (const Ort::Exception& error) {
        throw Failure(fmt::format("the voice detector cannot be loaded: {}; run scripts/setup, or set "
                                  "KESTREL_MODEL_DIR to the folder of the models",
                                  error.what()));
    }
}

SpeechDetector::~SpeechDetector() = default;

std::vector<float> SpeechDetector::probabilities(std::span<const float> samples) const {
    std::vector<float> hidden(kState, 0.0F);
    std::vector<float> cell(kState, 0.0F);
    std::vector<float> found;
    const std::size_t count = (samples.size() + kWindow - 1) / kWindow;
    std::vector<float> windows;
    for (std::size_t window = 0; window < count; ++window) {
        const std::size_t begin = window * kWindow;
        for (std::size_t i = 0; i < kContext + kWindow; ++i) {
            const std::size_t position = begin + i;
            const bool isInside = position >= kContext && position - kContext < samples.size();
            windows.push_back(isInside ? samples[position - kContext] : 0.0F);
        }
        if (window + 1 < count && windows.size() < kWindowsAtOnce * (kContext + kWindow)) continue;
        mModel->run(windows, hidden, cell, found);
        windows.clear();
    }
    return found;
}

std::vector<SampleRange> SpeechDetector::find(std::span<const float> samples) const {
    std::vector<SampleRange> stretches;
    bool voiced = false;
    const std::vector<float> all = probabilities(samples);
    for (std::size_t window = 0; window < all.size(); ++window) {
        voiced = all[window] >= (voiced ? kVoiceGoesOn : kVoiceBegins);
        if (!voiced) continue;
        const std::size_t begin = window * kWindow;
        const std::size_t end = std::min(begin + kWindow, samples.size());
        if (!stretches.empty() && begin - stretches.back().end < kShortestPause)
            stretches.back().end = end;
        else
            stretches.push_back({begin, end});
    }
    std::erase_if(stretches, [](const SampleRange& one) { return one.length() < kShortestVoice; });
    return stretches;
}

std::size_t lengthOf(const std::vector<SampleRange>& stretches) {
    std::size_t length = 0;
    for (const SampleRange& one : stretches)
        length += one.length();
    return length;
}

} // namespace kestrel
