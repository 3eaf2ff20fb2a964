#pragma once

#include "apps/kestrel/media/Downmix.h"
#include "apps/kestrel/media/Ffmpeg.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Decodes one audio track of an open file to mono samples on the file's clock.
class TrackDecoder {
public:
    /// @throws Failure when the track's codec is unknown or cannot be opened.
    TrackDecoder(const AVFormatContext& media, const AVStream& stream);

    /// Takes the next packet of the file; those of other tracks are ignored.
    void decode(const AVPacket& packet);
    /// Decodes what the codec still holds back: nothing follows.
    void finish();
    /// Appends silence until the track is as long as others of the file.
    void extendTo(std::size_t length);

    std::size_t length() const { return mTaken + mReady.size(); }
    /// Removes and returns up to `count` of the samples that are ready.
    std::vector<float> take(std::size_t count);
    std::size_t ready() const { return mReady.size(); }

    unsigned number() const { return mNumber; } ///< Among the file's audio tracks, from 1.
    const std::string& description() const { return mDescription; }
    /// Pieces that could not be decoded so far.
    std::size_t damagedPieces() const { return mDamaged; }

private:
    void drain();
    void append();
    bool matchesResampler() const;
    void makeResampler();
    void fillGap();
    void flushResampler();
    void convert(const std::uint8_t** samples, int count);

    const AVFormatContext& mMedia;
    const AVStream& mStream;
    unsigned mNumber = 0;
    std::string mDescription;
    ffmpeg::Owned<AVFrame> mFrame;
    ffmpeg::Owned<AVCodecContext> mCodec;
    ffmpeg::Owned<SwrContext> mResampler;
    std::optional<Downmix> mDownmix;
    int mFormat = -1;
    int mRate = 0;
    int mChannels = 0;
    std::size_t mChannelsOut = 0;
    std::vector<float> mReady;
    std::size_t mTaken = 0;
    std::size_t mDamaged = 0;
};

} // namespace kestrel
