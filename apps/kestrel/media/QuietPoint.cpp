#include "apps/kestrel/media/QuietPoint.h"

#include "apps/kestrel/media/AudioReader.h"

#include <cstdlib>

namespace kestrel {

std::size_t quietestPoint(std::span<const std::int16_t> samples) {
    constexpr std::size_t window = kSampleRate / 5;
    if (samples.size() <= window) return samples.size();
    const auto loudness = [&](std::size_t i) { return static_cast<std::int64_t>(std::abs(samples[i])); };
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < window; ++i)
        sum += loudness(i);
    std::int64_t lowest = sum;
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
