#include "apps/kestrel/media/AudioReader.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/media/Ffmpeg.h"
#include "apps/kestrel/media/TrackDecoder.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>

namespace kestrel {

namespace {

using ffmpeg::errorText;
using ffmpeg::Owned;

/// A track that lags so far behind another has nothing to say there.
constexpr std::size_t kLargestLag = std::size_t{60} * kSampleRate;

/// Finds out what the file is, and refuses what only seems to be media.
const AVInputFormat* probe(const std::string& url) {
    AVIOContext* bytes = nullptr;
    const AVInputFormat* format = nullptr;
    int result = avio_open(&bytes, url.c_str(), AVIO_FLAG_READ);
    if (result >= 0) result = av_probe_input_buffer2(bytes, &format, url.c_str(), nullptr, 0, 0);
    avio_closep(&bytes);
    if (result < 0) throw Failure(fmt::format("is not a media file that can be read: {}", errorText(result)));
    // FFmpeg takes any text file for a recording of a text terminal.
    if (std::strcmp(format->name, "tty") == 0) throw Failure("is not a media file: it is text");
    if (std::strcmp(format->name, "hls") == 0)
        throw Failure("is not a media file: it is a playlist; name the files that it lists");
    return format;
}

Owned<AVFormatContext> openMedia(const std::filesystem::path& file) {
    const std::string url = "file:" + file.string();
    const AVInputFormat* format = probe(url);
    AVFormatContext* context = nullptr;
    AVDictionary* options = nullptr;
    // A file that refers to others must not make us read the network.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    const int result = avformat_open_input(&context, url.c_str(), format, &options);
    av_dict_free(&options);
    if (result < 0) throw Failure(fmt::format("is not a media file that can be read: {}", errorText(result)));
    Owned<AVFormatContext> media(context);
    if (avformat_find_stream_info(media.get(), nullptr) < 0)
        throw Failure("is not a media file that can be read: no stream in it makes sense");
    return media;
}

std::vector<const AVStream*> audioStreams(const AVFormatContext& media) {
    std::vector<const AVStream*> streams;
    for (unsigned i = 0; i < media.nb_streams; ++i) {
        if (media.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) streams.push_back(media.streams[i]);
    }
    return streams;
}

std::vector<const AVStream*> chosenStreams(AVFormatContext& media, const TrackChoice& choice) {
    std::vector<const AVStream*> all = audioStreams(media);
    if (all.empty()) throw Failure("holds no audio");
    if (choice.kind == TrackChoice::Kind::All) return all;
    if (choice.kind == TrackChoice::Kind::One) {
        if (choice.number < 1 || choice.number > all.size())
            throw Failure(fmt::format("has no audio track {}; it has {}", choice.number, all.size()));
        return {all[choice.number - 1]};
    }
    const int best = av_find_best_stream(&media, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (best < 0) return {all.front()};
    return {media.streams[best]};
}

double seconds(std::int64_t time, AVRational base) {
    return static_cast<double>(time) * av_q2d(base);
}

} // namespace

class AudioReader::Impl {
public:
    Impl(const std::filesystem::path& file, const TrackChoice& choice)
        : mMedia(openMedia(file)), mPacket(av_packet_alloc()), mTracks(audioStreams(*mMedia).size()) {
        for (const AVStream* stream : chosenStreams(*mMedia, choice))
            mDecoders.push_back(std::make_unique<TrackDecoder>(*mMedia, *stream));
        if (mDecoders.size() > 1) mMix.emplace(mDecoders.size());
        mDescription = mDecoders.size() == 1 ? mDecoders.front()->description()
                                             : fmt::format("all {} audio tracks, mixed", mDecoders.size());
    }

    std::vector<float> read(std::size_t count) {
        while (!mEnded && ready() < count)
            feed();
        if (mDecoders.size() == 1) return mDecoders.front()->take(count);
        return mixed(count);
    }

    const std::string& description() const { return mDescription; }
    unsigned firstTrack() const { return mDecoders.front()->number(); }
    unsigned tracks() const { return static_cast<unsigned>(mTracks); }
    double readDuration() const { return mReadTo; }
    bool isDurationKnown() const {
        return mMedia->duration > 0 && mMedia->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    }
    double claimedDuration() const {
        return mMedia->duration > 0 ? static_cast<double>(mMedia->duration) / AV_TIME_BASE : 0.0;
    }
    std::size_t damagedPieces() const {
        std::size_t damaged = mDamaged;
        for (const auto& decoder : mDecoders)
            damaged += decoder->damagedPieces();
        return damaged;
    }

private:
    /// Samples that every track has ready.
    std::size_t ready() const {
        std::size_t least = mDecoders.front()->ready();
        for (const auto& decoder : mDecoders)
            least = std::min(least, decoder->ready());
        return least;
    }

    std::size_t longest() const {
        std::size_t most = 0;
        for (const auto& decoder : mDecoders)
            most = std::max(most, decoder->length());
        return most;
    }

    void feed() {
        const int result = av_read_frame(mMedia.get(), mPacket.get());
        if (result == AVERROR(EAGAIN)) return;
        if (result < 0) {
            mDamaged += result == AVERROR_EOF ? 0U : 1U;
            for (const auto& decoder : mDecoders)
                decoder->finish();
            mEnded = true;
        } else {
            noteTime();
            for (const auto& decoder : mDecoders)
                decoder->decode(*mPacket);
            av_packet_unref(mPacket.get());
        }
        if (mDecoders.size() == 1) return;
        const std::size_t most = longest();
        const std::size_t least = mEnded ? most : most - std::min(most, kLargestLag);
        for (const auto& decoder : mDecoders)
            decoder->extendTo(least);
    }

    void noteTime() {
        const AVRational base = mMedia->streams[mPacket->stream_index]->time_base;
        if (mPacket->pts == AV_NOPTS_VALUE) return;
        const double start =
            mMedia->start_time == AV_NOPTS_VALUE ? 0.0 : seconds(mMedia->start_time, AV_TIME_BASE_Q);
        mReadTo = std::max(mReadTo, seconds(mPacket->pts + mPacket->duration, base) - start);
    }

    std::vector<float> mixed(std::size_t count) {
        while (mMixed.size() < count && ready() > 0) {
            const std::size_t piece = std::min(ready(), count);
            std::vector<std::vector<float>> tracks;
            for (const auto& decoder : mDecoders)
                tracks.push_back(decoder->take(piece));
            mMix->add(tracks);
            mMix->take(mMixed, mEnded && ready() == 0);
            while (!mEnded && ready() == 0)
                feed();
        }
        const auto end = mMixed.begin() + static_cast<std::ptrdiff_t>(std::min(count, mMixed.size()));
        std::vector<float> samples(mMixed.begin(), end);
        mMixed.erase(mMixed.begin(), end);
        return samples;
    }

    Owned<AVFormatContext> mMedia;
    Owned<AVPacket> mPacket;
    std::size_t mTracks;
    std::vector<std::unique_ptr<TrackDecoder>> mDecoders;
    std::optional<Downmix> mMix;
    std::vector<float> mMixed;
    std::string mDescription;
    double mReadTo = 0.0;
    std::size_t mDamaged = 0;
    bool mEnded = false;
};

AudioReader::AudioReader(const std::filesystem::path& file, TrackChoice tracks) {
    av_log_set_level(AV_LOG_QUIET);
    mImpl = std::make_unique<Impl>(file, tracks);
}

AudioReader::~AudioReader() = default;

std::vector<float> AudioReader::read(std::size_t count) {
    return mImpl->read(count);
}

const std::string& AudioReader::trackDescription() const {
    return mImpl->description();
}

unsigned AudioReader::trackCount() const {
    return mImpl->tracks();
}

unsigned AudioReader::firstTrack() const {
    return mImpl->firstTrack();
}

double AudioReader::claimedDuration() const {
    return mImpl->claimedDuration();
}

bool AudioReader::isDurationKnown() const {
    return mImpl->isDurationKnown();
}

double AudioReader::readDuration() const {
    return mImpl->readDuration();
}

std::size_t AudioReader::damagedPieces() const {
    return mImpl->damagedPieces();
}

} // namespace kestrel
