#include "apps/kestrel/media/Level.h"

#include "apps/kestrel/media/AudioReader.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kestrel {

namespace {

constexpr std::size_t kFrame = kSampleRate / 20;
constexpr double kLoudShare = 0.01;
constexpr double kQuiet = -42.0;  ///< Speech of this level and below is raised.
constexpr double kSpoken = -22.0; ///< To this level, at which people record speech.
constexpr double kMostRaise = 66.0;
constexpr double kNothing = -120.0;

} // namespace

double loudLevel(std::span<const float> samples) {
    std::vector<double> energies;
    for (std::size_t begin = 0; begin + kFrame <= samples.size(); begin += kFrame) {
        double energy = 0.0;
        for (const float sample : samples.subspan(begin, kFrame))
            energy += static_cast<double>(sample) * sample;
        energies.push_back(energy / kFrame);
    }
    if (energies.empty()) return kNothing;
    const auto loud = energies.begin() + static_cast<std::ptrdiff_t>(
                                             static_cast<double>(energies.size() - 1) * (1.0 - kLoudShare));
    std::nth_element(energies.begin(), loud, energies.end());
    return std::max(kNothing, 10.0 * std::log10(*loud + 1e-13));
}

double raiseFor(double level) {
    return level > kQuiet || level <= kNothing ? 0.0 : std::min(kSpoken - level, kMostRaise);
}

void raise(std::span<float> samples, double decibels) {
    const auto factor = static_cast<float>(std::pow(10.0, decibels / 20.0));
    for (float& sample : samples)
        sample *= factor;
}

} // namespace kestrel
