#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace kestrel {

/// From the first sample up to, not including, the last.
struct SampleRange {
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t length() const { return end - begin; }
};

/// Finds where somebody speaks, with the voice detector that the recogniser's package carries (Silero VAD).
class SpeechDetector {
public:
    /// @throws Failure when the model is missing or unreadable.
    explicit SpeechDetector(const std::filesystem::path& model);
    ~SpeechDetector();

    /// The voiced stretches of mono samples at kSampleRate, in order; pauses of less than half a second are
    /// part of a stretch.
    std::vector<SampleRange> find(std::span<const float> samples) const;

private:
    std::vector<float> probabilities(std::span<const float> samples) const;

    class Model;
    std::unique_ptr<Model> mModel;
};

/// Samples in all stretches together.
std::size_t lengthOf(const std::vector<SampleRange>& stretches);

} // namespace kestrel
