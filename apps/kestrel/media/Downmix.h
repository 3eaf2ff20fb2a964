#pragma once

#include <cstddef>
#include <vector>

namespace kestrel {

/// Mixes channels to one without cancelling what they share.
///
/// A recording whose second channel is wired the wrong way round is silent in the plain mean of both. So a
/// channel that opposes the ones before it for half a second is turned round until it no longer does.
class Downmix {
public:
    explicit Downmix(std::size_t channels);

    /// Takes the next samples: one vector for each channel, all of the same length.
    void add(const std::vector<std::vector<float>>& channels);
    /// Appends to `mono` what can be mixed by now; at the end of the recording (`all`), everything.
    void take(std::vector<float>& mono, bool all);
    /// Samples that wait for their block to be complete.
    std::size_t waiting() const { return mWaiting.front().size(); }

private:
    void mixBlock(std::size_t count, std::vector<float>& mono);

    std::vector<std::vector<float>> mWaiting;
    std::vector<float> mSigns;
    float mScale;
};

} // namespace kestrel
