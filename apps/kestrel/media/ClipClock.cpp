#include "apps/kestrel/media/ClipClock.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <memory>

namespace kestrel {

namespace {

struct Close {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Media = std::unique_ptr<AVFormatContext, Close>;

Media open(const std::filesystem::path& file) {
    const std::string url = "file:" + file.string();
    AVFormatContext* context = nullptr;
    AVDictionary* options = nullptr;
    // A file that refers to others must not make us read the network.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    const int opened = avformat_open_input(&context, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (opened < 0) throw Failure("is not a media file that can be read");
    Media media(context);
    if (avformat_find_stream_info(media.get(), nullptr) < 0)
        throw Failure("is not a media file that can be read");
    return media;
}

const AVStream* firstStream(const AVFormatContext& media, AVMediaType type) {
    for (unsigned i = 0; i < media.nb_streams; ++i) {
        const AVStream* stream = media.streams[i];
        const bool isCover = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (stream->codecpar->codec_type == type && !isCover) return stream;
    }
    return nullptr;
}

const AVStream* timecodeTrack(const AVFormatContext& media) {
    for (unsigned i = 0; i < media.nb_streams; ++i) {
        if (media.streams[i]->codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd')) return media.streams[i];
    }
    return nullptr;
}

/// A tag of the file or of any of its streams.
std::string tag(const AVFormatContext& media, const char* name) {
    const AVDictionaryEntry* entry = av_dict_get(media.metadata, name, nullptr, 0);
    for (unsigned i = 0; entry == nullptr && i < media.nb_streams; ++i)
        entry = av_dict_get(media.streams[i]->metadata, name, nullptr, 0);
    return entry == nullptr ? "" : entry->value;
}

std::optional<FrameRate> rateOf(const AVStream* stream) {
    if (stream == nullptr) return std::nullopt;
    for (const AVRational rate : {stream->avg_frame_rate, stream->r_frame_rate}) {
        if (rate.num > 0 && rate.den > 0 && rate.num / rate.den < 1000) return usualRate(rate.num, rate.den);
    }
    return std::nullopt;
}

void setRate(ClipClock& clock, const ClockOptions& options, const std::string& timecode) {
    if (!options.frameRate.empty()) {
        clock.rate = parseFrameRate(options.frameRate);
        clock.hasOwnRate = true;
    }
    const bool isNtsc = clock.rate.seconds == 1001 && clock.rate.nominal() % 30 == 0;
    if (isNtsc && isDropFrameLabel(timecode)) clock.rate.dropFrame = true;
}

void setStart(ClipClock& clock, const std::string& timecode) {
    clock.startFrame = frameOfTimecode(timecode, clock.rate);
    clock.hasOwnTimecode = true;
}

/// A tag that is no time code at the file's rate counts for nothing: files carry all sorts of things.
void setStartFromTag(ClipClock& clock, const std::string& timecode) {
    try {
        setStart(clock, timecode);
    } catch (const UsageError&) {
        clock.startFrame = 0;
    }
}

void describeStreams(ClipClock& clock, const AVFormatContext& media) {
    if (const AVStream* video = firstStream(media, AVMEDIA_TYPE_VIDEO)) {
        clock.hasVideo = true;
        clock.width = video->codecpar->width;
        clock.height = video->codecpar->height;
    }
    const AVStream* audio = firstStream(media, AVMEDIA_TYPE_AUDIO);
    clock.hasAudio = audio != nullptr;
    if (audio != nullptr) {
        clock.sampleRate = audio->codecpar->sample_rate;
        clock.channels = audio->codecpar->ch_layout.nb_channels;
    }
}

} // namespace

ClipClock readClock(const std::filesystem::path& file, const ClockOptions& options) {
    const Media media = open(file);
    ClipClock clock;
    clock.file = std::filesystem::absolute(file);
    clock.reel = tag(*media, "reel_name");
    describeStreams(clock, *media);
    auto rate = rateOf(firstStream(*media, AVMEDIA_TYPE_VIDEO));
    if (!rate) rate = rateOf(timecodeTrack(*media));
    clock.hasOwnRate = rate.has_value();
    clock.rate = rate.value_or(FrameRate{});

    const std::string own = tag(*media, "timecode");
    setRate(clock, options, options.startTimecode.empty() ? own : options.startTimecode);
    const std::string samples = tag(*media, "time_reference");
    if (!options.startTimecode.empty()) {
        setStart(clock, options.startTimecode);
    } else if (!own.empty()) {
        setStartFromTag(clock, own);
    } else if (!samples.empty() && clock.sampleRate > 0) {
        // Samples since midnight (EBU Tech 3285), which need not begin a frame.
        const std::int64_t offset = std::strtoll(samples.c_str(), nullptr, 10);
        clock.sampleOffset = offset;
        clock.startFrame =
            static_cast<std::int64_t>(static_cast<__int128>(offset) * clock.rate.frames /
                                      (static_cast<__int128>(clock.sampleRate) * clock.rate.seconds));
        clock.hasOwnTimecode = true;
    }
    const std::int64_t lengthMs = media->duration > 0 ? media->duration / (AV_TIME_BASE / 1000) : 0;
    clock.frameCount = clock.rate.frameFrom(lengthMs);
    return clock;
}

ClipClock makeClock(const ClockOptions& options, std::int64_t lengthMs) {
    ClipClock clock;
    setRate(clock, options, options.startTimecode);
    if (!options.startTimecode.empty()) setStart(clock, options.startTimecode);
    clock.frameCount = clock.rate.frameFrom(lengthMs);
    return clock;
}

} // namespace kestrel
