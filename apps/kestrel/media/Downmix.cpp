#include "apps/kestrel/media/Downmix.h"

#include "apps/kestrel/media/AudioReader.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kestrel {

namespace {

constexpr std::size_t kBlock = kSampleRate / 2;
constexpr std::size_t kTurnSamples = kSampleRate / 100; ///< A channel is turned round without a click.
/// Correlation from which a channel opposes the others. Ordinary stereo comes nowhere near it.
constexpr double kOpposed = -0.6;
constexpr double kSilence = 1e-9; ///< Energy of a sample below which nothing is to be learnt.

double product(const std::vector<float>& a, const std::vector<float>& b, std::size_t count) {
    return std::inner_product(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(count), b.begin(), 0.0);
}

} // namespace

// Two channels share what is said; of many, few carry a voice at a time.
Downmix::Downmix(std::size_t channels)
    : mWaiting(channels), mSigns(channels, 1.0F),
      mScale(channels <= 2 ? 1.0F / static_cast<float>(channels)
                           : 1.0F / std::sqrt(static_cast<float>(channels))) {
}

void Downmix::add(const std::vector<std::vector<float>>& channels) {
    for (std::size_t i = 0; i < mWaiting.size(); ++i)
        mWaiting[i].insert(mWaiting[i].end(), channels[i].begin(), channels[i].end());
}

void Downmix::take(std::vector<float>& mono, bool all) {
    if (mWaiting.size() == 1) {
        mono.insert(mono.end(), mWaiting[0].begin(), mWaiting[0].end());
        mWaiting[0].clear();
        return;
    }
    while (mWaiting[0].size() >= kBlock || (all && !mWaiting[0].empty()))
        mixBlock(std::min(kBlock, mWaiting[0].size()), mono);
}

void Downmix::mixBlock(std::size_t count, std::vector<float>& mono) {
    std::vector<float> sum(count, 0.0F);
    for (std::size_t i = 0; i < mWaiting.size(); ++i) {
        std::vector<float>& channel = mWaiting[i];
        const float before = mSigns[i];
        const double shared = product(channel, sum, count) * static_cast<double>(before);
        const double energy = std::sqrt(product(channel, channel, count) * product(sum, sum, count));
        if (energy > kSilence * static_cast<double>(count) && shared < kOpposed * energy) mSigns[i] = -before;
        for (std::size_t n = 0; n < count; ++n) {
            const float turned = std::min(1.0F, static_cast<float>(n) / kTurnSamples);
            sum[n] += channel[n] * (before + (mSigns[i] - before) * turned);
        }
        channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(count));
    }
    for (const float sample : sum)
        mono.push_back(sample * mScale);
}

} // namespace kestrel
