#pragma once

#include "apps/kestrel/clips/ClipAudio.h"
#include "kestrelml/core/KsNNBase.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

/// Keeps the speaker labels of a clip over its parts.
///
/// An engine tells voices apart within what it gets at a time, and numbers them anew each time. So a few
/// seconds of each voice that is known are put before the next part, and the label that they get there is the
/// voice's.
class VoiceReel {
public:
    /// What stands before the next part; nothing for the first one.
    const std::vector<std::int16_t>& samples() const { return mSamples; }

    /// Removes the segments of the reel from what the engine made of reel and part, takes their length off
    /// the times of the others, and gives these the clip's labels.
    void relabel(KsNNDB_STTClipEntry& entry);
    /// Learns the voices of a part whose labels are the clip's; times are from the part's start.
    void learn(const KsNNDB_STTClipEntry& entry, const std::vector<std::int16_t>& samples);

private:
    struct Excerpt {
        std::size_t begin = 0; ///< In the reel.
        std::size_t end = 0;
        std::string speaker;
    };

    std::map<std::string, std::string> labelsFor(const KsNNDB_STTClipEntry& entry);
    void build();

    std::map<std::string, std::vector<std::int16_t>> mVoices; ///< By the clip's labels.
    int mSpeakers = 0;
    std::vector<Excerpt> mExcerpts;
    std::vector<std::int16_t> mSamples;
};

} // namespace kestrel
