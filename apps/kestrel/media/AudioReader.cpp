#include "apps/kestrel/media/AudioReader.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace kestrel {

namespace {

struct Deleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwrContext* context) const { swr_free(&context); }
};

template <typename Type>
using Owned = std::unique_ptr<Type, Deleter>;

/// Clocks in files jitter; only what can be heard as a gap is one.
constexpr std::int64_t kSmallestGap = kSampleRate / 10;
/// A longer one is a broken clock, as in streams that were cut together.
constexpr std::int64_t kLongestGap = std::int64_t{600} * kSampleRate;

std::string errorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

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

std::string describe(const AVFormatContext& media, const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    unsigned tracks = 0;
    unsigned number = 0;
    for (unsigned i = 0; i < media.nb_streams; ++i) {
        tracks += media.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO ? 1U : 0U;
        if (media.streams[i] == &stream) number = tracks;
    }
    // Many files give only the number of channels; then they are named as is usual for that number.
    AVChannelLayout usual{};
    av_channel_layout_default(&usual, codec.ch_layout.nb_channels);
    const bool isNamed = codec.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC;
    std::array<char, 64> layout{};
    av_channel_layout_describe(isNamed ? &codec.ch_layout : &usual, layout.data(), layout.size());
    const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
    return fmt::format("audio track {} of {}: {}, {} Hz, {}{}", number, tracks,
                       avcodec_get_name(codec.codec_id), codec.sample_rate, layout.data(),
                       language ? fmt::format(", {}", language->value) : "");
}

} // namespace

class AudioReader::Decoder {
public:
    explicit Decoder(const std::filesystem::path& file)
        : mMedia(openMedia(file)), mFrame(av_frame_alloc()), mPacket(av_packet_alloc()) {
        const AVCodec* decoder = nullptr;
        const int index = av_find_best_stream(mMedia.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
        if (index == AVERROR_DECODER_NOT_FOUND)
            throw Failure("holds sound in a coding that FFmpeg has no decoder for");
        if (index < 0) throw Failure("holds no sound");
        mStream = mMedia->streams[index];
        mDescription = describe(*mMedia, *mStream);
        mCodec.reset(avcodec_alloc_context3(decoder));
        avcodec_parameters_to_context(mCodec.get(), mStream->codecpar);
        mCodec->pkt_timebase = mStream->time_base;
        if (const int result = avcodec_open2(mCodec.get(), decoder, nullptr); result < 0)
            throw Failure(fmt::format("holds sound that cannot be decoded: {}", errorText(result)));
    }

    std::vector<std::int16_t> read(std::size_t count) {
        while (!mEnded && mReady.size() < count)
            decodeFrame();
        const auto end = mReady.begin() + static_cast<std::ptrdiff_t>(std::min(count, mReady.size()));
        std::vector<std::int16_t> samples(mReady.begin(), end);
        mReady.erase(mReady.begin(), end);
        return samples;
    }

    const std::string& description() const { return mDescription; }
    std::size_t damagedPieces() const { return mDamaged; }
    double claimedDuration() const {
        return mMedia->duration > 0 ? static_cast<double>(mMedia->duration) / AV_TIME_BASE : 0.0;
    }

private:
    void decodeFrame() {
        const int result = avcodec_receive_frame(mCodec.get(), mFrame.get());
        if (result == 0) {
            append();
        } else if (result == AVERROR_EOF) {
            flushResampler();
            mEnded = true;
        } else {
            mDamaged += result == AVERROR(EAGAIN) ? 0U : 1U;
            feedDecoder();
        }
    }

    void feedDecoder() {
        const int result = av_read_frame(mMedia.get(), mPacket.get());
        if (result == AVERROR(EAGAIN)) return;
        if (result < 0) {
            mDamaged += result == AVERROR_EOF ? 0U : 1U;
            avcodec_send_packet(mCodec.get(), nullptr);
            return;
        }
        if (mPacket->stream_index == mStream->index && avcodec_send_packet(mCodec.get(), mPacket.get()) < 0)
            ++mDamaged;
        av_packet_unref(mPacket.get());
    }

    void append() {
        if (!matchesResampler()) makeResampler();
        fillGap();
        convert(const_cast<const std::uint8_t**>(mFrame->extended_data), mFrame->nb_samples);
        av_frame_unref(mFrame.get());
    }

    bool matchesResampler() const {
        return mResampler && mFrame->format == mFormat && mFrame->sample_rate == mRate &&
               mFrame->ch_layout.nb_channels == mChannels;
    }

    void makeResampler() {
        flushResampler();
        AVChannelLayout from{};
        if (mFrame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&from, mFrame->ch_layout.nb_channels);
        else
            av_channel_layout_copy(&from, &mFrame->ch_layout);
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext* context = nullptr;
        const int made =
            swr_alloc_set_opts2(&context, &mono, AV_SAMPLE_FMT_S16, kSampleRate, &from,
                                static_cast<AVSampleFormat>(mFrame->format), mFrame->sample_rate, 0, nullptr);
        av_channel_layout_uninit(&from);
        mResampler.reset(context);
        if (made < 0 || swr_init(mResampler.get()) < 0)
            throw Failure("holds sound that cannot be converted to 16,000 samples a second");
        mFormat = mFrame->format;
        mRate = mFrame->sample_rate;
        mChannels = mFrame->ch_layout.nb_channels;
    }

    void fillGap() {
        if (mFrame->best_effort_timestamp == AV_NOPTS_VALUE) return;
        const double start = mMedia->start_time == AV_NOPTS_VALUE
                                 ? 0.0
                                 : static_cast<double>(mMedia->start_time) / AV_TIME_BASE;
        const double time =
            static_cast<double>(mFrame->best_effort_timestamp) * av_q2d(mStream->time_base) - start;
        const std::int64_t due = std::llround(time * kSampleRate);
        const std::int64_t gap = due - mProduced - swr_get_delay(mResampler.get(), kSampleRate);
        if (gap >= kSmallestGap && gap <= kLongestGap) {
            mReady.insert(mReady.end(), static_cast<std::size_t>(gap), 0);
            mProduced += gap;
        }
    }

    void flushResampler() {
        if (mResampler) convert(nullptr, 0);
    }

    void convert(const std::uint8_t** samples, int count) {
        const int room = swr_get_out_samples(mResampler.get(), count);
        const std::size_t before = mReady.size();
        mReady.resize(before + static_cast<std::size_t>(std::max(room, 0)));
        auto* target = reinterpret_cast<std::uint8_t*>(mReady.data() + before);
        const int made = std::max(swr_convert(mResampler.get(), &target, room, samples, count), 0);
        mReady.resize(before + static_cast<std::size_t>(made));
        mProduced += made;
    }

    Owned<AVFormatContext> mMedia;
    Owned<AVFrame> mFrame;
    Owned<AVPacket> mPacket;
    Owned<AVCodecContext> mCodec;
    Owned<SwrContext> mResampler;
    const AVStream* mStream = nullptr;
    std::string mDescription;
    int mFormat = -1;
    int mRate = 0;
    int mChannels = 0;
    std::vector<std::int16_t> mReady;
    std::int64_t mProduced = 0;
    std::size_t mDamaged = 0;
    bool mEnded = false;
};

AudioReader::AudioReader(const std::filesystem::path& file) {
    av_log_set_level(AV_LOG_QUIET);
    mDecoder = std::make_unique<Decoder>(file);
}

AudioReader::~AudioReader() = default;

std::vector<std::int16_t> AudioReader::read(std::size_t count) {
    return mDecoder->read(count);
}

const std::string& AudioReader::trackDescription() const {
    return mDecoder->description();
}

double AudioReader::claimedDuration() const {
    return mDecoder->claimedDuration();
}

std::size_t AudioReader::damagedPieces() const {
    return mDecoder->damagedPieces();
}

} // namespace kestrel
