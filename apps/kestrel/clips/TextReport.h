#pragma once

#include "apps/kestrel/clips/ClipAudio.h"
#include "kestrelml/core/KsNNBase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// Neighbouring segments that the recogniser itself does not trust: unclear speech, another language than it
/// took it for, or no speech at all.
struct DoubtfulText {
    std::int64_t begin = 0;  ///< In milliseconds.
    std::int64_t spoken = 0; ///< In milliseconds, pauses between segments left out.
    int confidence = 0;      ///< Mean of the words', 0 to 100.
    std::string language;
};
/// Empty where the recogniser does not say how sure it is.
std::vector<DoubtfulText> doubtfulText(const KsNNDB_STTClipEntry& entry);

/// What listeners should know about the text of a clip, in plain words: speech without any, and text that is
/// probably wrong.
/// @param voiced Where somebody speaks.
std::vector<std::string> textWarnings(const KsNNDB_STTClipEntry& entry,
                                      const std::vector<SampleRange>& voiced);

} // namespace kestrel
