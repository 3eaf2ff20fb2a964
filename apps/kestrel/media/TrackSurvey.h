#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/media/SpeechDetector.h"

#include <filesystem>
#include <string>

namespace kestrel {

/// The track in which somebody speaks.
struct SpokenTrack {
    TrackChoice choice;
    std::string note; ///< Why, for people; empty when there was nothing to choose.
};

/// Listens to the audio tracks of a file, from its beginning until somebody is heard in one, and chooses: the
/// track that FFmpeg prefers, unless there is clearly more speech in another.
/// @throws Failure when the file cannot be read, Cancelled.
SpokenTrack findSpokenTrack(const std::filesystem::path& file, const SpeechDetector& detector,
                            const Callbacks& callbacks);

} // namespace kestrel
