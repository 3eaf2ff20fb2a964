#include "apps/kestrel/media/QuietPoint.h"

#include "apps/kestrel/media/AudioReader.h"

#include <cmath>

namespace kestrel {

std::size_t quietestPoint(std::span<const float> samples) {
    constexpr std::size_t kWindow = kSampleRate / 5;
    if (samples.size() <= kWindow) return samples.size();
    const auto loudness = [&](std::size_t i) { return static_cast<double>(std::abs(samples[i])); };
    double sum = 0.0;
    for (std::size_t i = 0; i < kWindow; ++i)
        sum += loudness(i);
    double lowest = sum;
    std::size_t start = 0;
    for (std::size_t i = kWindow; i < samples.size(); ++i) {
        sum += loudness(i) - loudness(i - kWindow);
        if (sum < lowest) {
            lowest = sum;
            start = i - kWindow + 1;
        }
    }
    return start + kWindow / 2;
}

} // namespace kestrel
