#include "apps/kestrel/media/TrackDecoder.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/media/AudioReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

/// Clocks in files jitter; only what can be heard as a gap is one.
constexpr std::int64_t kSmallestGap = kSampleRate / 10;
/// A longer one is a broken clock, as in streams that were cut together.
constexpr std::int64_t kLongestGap = std::int64_t{600} * kSampleRate;

unsigned trackNumber(const AVFormatContext& media, const AVStream& stream, unsigned& tracks) {
    unsigned number = 0;
    tracks = 0;
    for (unsigned i = 0; i < media.nb_streams; ++i) {
        tracks += media.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO ? 1U : 0U;
        if (media.streams[i] == &stream) number = tracks;
    }
    return number;
}

std::string describe(const AVStream& stream, unsigned number, unsigned tracks) {
    const AVCodecParameters& codec = *stream.codecpar;
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

TrackDecoder::TrackDecoder(const AVFormatContext& media, const AVStream& stream)
    : mMedia(media), mStream(stream), mFrame(av_frame_alloc()) {
    unsigned tracks = 0;
    mNumber = trackNumber(media, stream, tracks);
    mDescription = describe(stream, mNumber, tracks);
    const AVCodec* decoder = avcodec_find_decoder(stream.codecpar->codec_id);
    if (!decoder) throw Failure("holds audio in a codec that FFmpeg cannot decode");
    mCodec.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(mCodec.get(), stream.codecpar);
    mCodec->pkt_timebase = stream.time_base;
    if (const int result = avcodec_open2(mCodec.get(), decoder, nullptr); result < 0)
        throw Failure(fmt::format("holds audio that cannot be decoded: {}", ffmpeg::errorText(result)));
}

void TrackDecoder::decode(const AVPacket& packet) {
    if (packet.stream_index != mStream.index) return;
    if (avcodec_send_packet(mCodec.get(), &packet) < 0) ++mDamaged;
    drain();
}

void TrackDecoder::finish() {
    avcodec_send_packet(mCodec.get(), nullptr);
    drain();
    flushResampler();
}

void TrackDecoder::extendTo(std::size_t length) {
    if (this->length() < length) mReady.resize(length - mTaken, 0.0F);
}

std::vector<float> TrackDecoder::take(std::size_t count) {
    const auto end = mReady.begin() + static_cast<std::ptrdiff_t>(std::min(count, mReady.size()));
    std::vector<float> samples(mReady.begin(), end);
    mReady.erase(mReady.begin(), end);
    mTaken += samples.size();
    return samples;
}

void TrackDecoder::drain() {
    int result = 0;
    while ((result = avcodec_receive_frame(mCodec.get(), mFrame.get())) == 0)
        append();
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) ++mDamaged;
}

void TrackDecoder::append() {
    if (!matchesResampler()) makeResampler();
    fillGap();
    convert(const_cast<const std::uint8_t**>(mFrame->extended_data), mFrame->nb_samples);
    av_frame_unref(mFrame.get());
}

bool TrackDecoder::matchesResampler() const {
    return mResampler && mFrame->format == mFormat && mFrame->sample_rate == mRate &&
           mFrame->ch_layout.nb_channels == mChannels;
}

void TrackDecoder::makeResampler() {
    flushResampler();
    const AVChannelLayout& own = mFrame->ch_layout;
    // Channels whose places are known and that are more than two become left and right as usual; what is
    // only numbered, such as the microphones of a field recorder, all counts the same.
    const bool isNamed = own.order == AV_CHANNEL_ORDER_NATIVE && own.nb_channels > 2;
    AVChannelLayout from{};
    AVChannelLayout to{};
    if (isNamed) {
        av_channel_layout_copy(&from, &own);
        av_channel_layout_default(&to, 2);
    } else {
        from.order = to.order = AV_CHANNEL_ORDER_UNSPEC;
        from.nb_channels = to.nb_channels = own.nb_channels;
    }
    SwrContext* context = nullptr;
    const int made =
        swr_alloc_set_opts2(&context, &to, AV_SAMPLE_FMT_FLTP, kSampleRate, &from,
                            static_cast<AVSampleFormat>(mFrame->format), mFrame->sample_rate, 0, nullptr);
    mChannelsOut = static_cast<std::size_t>(to.nb_channels);
    av_channel_layout_uninit(&from);
    av_channel_layout_uninit(&to);
    mResampler.reset(context);
    if (made < 0 || swr_init(mResampler.get()) < 0)
        throw Failure("holds audio that cannot be converted to 16,000 samples per second");
    mFormat = mFrame->format;
    mRate = mFrame->sample_rate;
    mChannels = mFrame->ch_layout.nb_channels;
    mDownmix.emplace(mChannelsOut);
}

void TrackDecoder::fillGap() {
    if (mFrame->best_effort_timestamp == AV_NOPTS_VALUE) return;
    const double start =
        mMedia.start_time == AV_NOPTS_VALUE ? 0.0 : static_cast<double>(mMedia.start_time) / AV_TIME_BASE;
    const double time =
        static_cast<double>(mFrame->best_effort_timestamp) * av_q2d(mStream.time_base) - start;
    const std::int64_t due = std::llround(time * kSampleRate);
    const auto produced = static_cast<std::int64_t>(length() + mDownmix->waiting());
    const std::int64_t gap = due - produced - swr_get_delay(mResampler.get(), kSampleRate);
    if (gap < kSmallestGap || gap > kLongestGap) return;
    mDownmix->take(mReady, true);
    mReady.resize(mReady.size() + static_cast<std::size_t>(gap), 0.0F);
}

void TrackDecoder::flushResampler() {
    if (!mResampler) return;
    convert(nullptr, 0);
    mDownmix->take(mReady, true);
}

void TrackDecoder::convert(const std::uint8_t** samples, int count) {
    const int room = std::max(swr_get_out_samples(mResampler.get(), count), 0);
    std::vector<std::vector<float>> channels(mChannelsOut,
                                             std::vector<float>(static_cast<std::size_t>(room)));
    std::vector<std::uint8_t*> targets;
    targets.reserve(channels.size());
    for (std::vector<float>& channel : channels)
        targets.push_back(reinterpret_cast<std::uint8_t*>(channel.data()));
    const int made = std::max(swr_convert(mResampler.get(), targets.data(), room, samples, count), 0);
    for (std::vector<float>& channel : channels)
        channel.resize(static_cast<std::size_t>(made));
    mDownmix->add(channels);
    mDownmix->take(mReady, false);
}

} // namespace kestrel
