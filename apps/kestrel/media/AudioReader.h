#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

inline constexpr int kSampleRate = 16000; ///< What the speech engines take.

/// The sound of a media file as mono 16-bit samples at 16,000 per second, decoded as it is asked for.
///
/// Samples keep to the file's clock: where sound begins late or pauses, silence is put, so that the position
/// of a sample is its time in the clip.
class AudioReader {
public:
    /// Opens the best sound track of any file that FFmpeg reads.
    /// @throws Failure when the file is not media or holds no sound.
    explicit AudioReader(const std::filesystem::path& file);
    ~AudioReader();

    /// The next `count` samples; fewer only at the end, and then none.
    std::vector<std::int16_t> read(std::size_t count);
    /// Which track is read, for people.
    const std::string& trackDescription() const;
    /// Length that the file claims, in seconds; 0 when it does not say.
    double claimedDuration() const;
    /// Pieces of the file that could not be decoded so far.
    std::size_t damagedPieces() const;

private:
    class Decoder;
    std::unique_ptr<Decoder> mDecoder;
};

} // namespace kestrel
