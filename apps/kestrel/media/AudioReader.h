#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

inline constexpr int kSampleRate = 16000; ///< What the speech engines take.

/// Which audio tracks of a file are read.
struct TrackChoice {
    enum class Kind { Best, One, All };
    Kind kind = Kind::Best; ///< Best: the one that FFmpeg prefers. All: mixed to one.
    unsigned number = 0;    ///< For One: among the audio tracks, from 1.
};

/// The audio of a media file as mono samples from -1 to 1, at 16,000 per second, decoded as it is asked for.
/// A mix of several tracks may go beyond that range.
///
/// Samples keep to the file's clock: where audio begins late or pauses, silence is put, so that the position
/// of a sample is its time in the clip.
class AudioReader {
public:
    /// Opens any file that FFmpeg reads.
    /// @throws Failure when the file is not media or does not have the audio that is asked for.
    explicit AudioReader(const std::filesystem::path& file, TrackChoice tracks = {});
    ~AudioReader();

    /// The next `count` samples; fewer only at the end, and then none.
    std::vector<float> read(std::size_t count);
    /// What is read, for people.
    const std::string& trackDescription() const;
    /// Number of audio tracks in the file.
    unsigned trackCount() const;
    /// Number of the track that is read, or of the first one of several.
    unsigned firstTrack() const;
    /// Length that the file claims, in seconds; 0 when it does not say.
    double claimedDuration() const;
    /// Whether the claimed length is more than a guess from the bit rate.
    bool isDurationKnown() const;
    /// How far the file could be read, in seconds, counting all its tracks, picture too.
    double readDuration() const;
    /// Pieces of the file that could not be decoded so far.
    std::size_t damagedPieces() const;

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

} // namespace kestrel
