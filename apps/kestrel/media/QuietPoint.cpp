#include "apps/kestrel/media/QuietPoint.h"

#include "apps/kestrel/media/AudioReader.h"

#include <cmath>

namespace kestrel {

std::size_t quietestPoint(std::span<const float> samples) {
    constexpr std::size_t window = kSampleRate / 5;
    if (samples.size() <= window) return samples.size();
    const auto loudness = [&](std::size_t i) { return static_cast<double>(std::abs(samples[i])); };
    double sum = 0.0;
    for (std::size_t i = 0; i < window; ++i)
        sum += loudness(i);
    double lowest = sum;
    std::size_t start = 0;
    for (std::size_t i = window; i < samples.size(); ++i) {
        sum += loudness(i) - loudness(i - window);
        if (sum < lowest) {
            lowest = sum;
            start = i - window + 1;
        }
    }
    return start + window / 2;
}

} // namespace kestrel
