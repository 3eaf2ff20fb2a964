#include "kestrelml/stt/ctc/AcousticModel.h"

#include <array>

namespace kestrelml::stt {

AcousticModel::AcousticModel(const std::filesystem::path& file)
    : mEnvironment(ORT_LOGGING_LEVEL_WARNING, ""),
      mSession(mEnvironment, file.c_str(), Ort::SessionOptions()),
      mMemory(Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeCPU)) {
    Ort::AllocatorWithDefaultOptions allocator;
    mInputName = mSession.GetInputNameAllocated(0, allocator).get();
    mOutputName = mSession.GetOutputNameAllocated(0, allocator).get();
}

void AcousticModel::run(float* samples, std::size_t count, float* scores, std::size_t frames,
                        std::size_t tokens) const {
    const std::array<std::int64_t, 2> inputShape{1, static_cast<std::int64_t>(count)};
    const std::array<std::int64_t, 3> outputShape{1, static_cast<std::int64_t>(frames),
                                                  static_cast<std::int64_t>(tokens)};
    const Ort::Value input =
        Ort::Value::CreateTensor<float>(mMemory, samples, count, inputShape.data(), inputShape.size());
    Ort::Value output = Ort::Value::CreateTensor<float>(mMemory, scores, frames * tokens, outputShape.data(),
                                                        outputShape.size());
    const char* const inputName = mInputName.c_str();
    const char* const outputName = mOutputName.c_str();
    mSession.Run(Ort::RunOptions{nullptr}, &inputName, &input, 1, &outputName, &output, 1);
}

} // namespace kestrelml::stt
