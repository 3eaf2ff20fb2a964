#pragma once

/// @file
/// A CTC acoustic model in ONNX Runtime.

#include <cstddef>
#include <filesystem>
#include <onnxruntime_cxx_api.h>
#include <string>

namespace kestrelml::stt {

/// A loaded model. Several threads may run it at once.
class AcousticModel {
public:
    /// @throws Ort::Exception when the model cannot be loaded or has no input or output.
    explicit AcousticModel(const std::filesystem::path& file);

    /// Runs one chunk of `count` samples and writes its `frames` x `tokens` scores.
    /// @throws Ort::Exception when the model fails, or when its scores have another shape.
    void run(float* samples, std::size_t count, float* scores, std::size_t frames, std::size_t tokens) const;

private:
    Ort::Env mEnvironment;
    mutable Ort::Session mSession; ///< Running it changes nothing that can be seen.
    Ort::MemoryInfo mMemory;
    std::string mInputName;
    std::string mOutputName;
};

} // namespace kestrelml::stt
