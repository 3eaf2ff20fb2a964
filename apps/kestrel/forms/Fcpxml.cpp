#include "apps/kestrel/forms/EditList.h"
#include "apps/kestrel/forms/XmlText.h"

#include <fmt/format.h>

#include <map>
#include <numeric>
#include <string>

namespace kestrel {

namespace {

/// Version 1.8 is the last whose assets name their file themselves; every later program reads it.
constexpr const char* kVersion = "1.8";

/// A number of frames as an exact fraction of seconds.
std::string seconds(std::int64_t frames, const FrameRate& rate) {
    const std::int64_t count = frames * rate.seconds;
    if (count % rate.frames == 0) return fmt::format("{}s", count / rate.frames);
    const std::int64_t divisor = std::gcd(count, rate.frames);
    return fmt::format("{}/{}s", count / divisor, rate.frames / divisor);
}

const char* counting(const FrameRate& rate) {
    return rate.dropFrame ? "DF" : "NDF";
}

/// Control characters have no place in XML.
std::string clean(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < 0x20) character = ' ';
    }
    return text;
}

class Fcpxml {
public:
    Fcpxml(const Selection& selection, const EditList& list)
        : mSelection(selection), mList(list), mDocument("fcpxml") {}

    std::string write() {
        {
            const XmlText::Element root(mDocument, "fcpxml", {{"version", kVersion}});
            writeResources();
            const XmlText::Element library(mDocument, "library");
            const XmlText::Element event(mDocument, "event", {{"name", clean(mSelection.title)}});
            const XmlText::Element project(mDocument, "project", {{"name", clean(mSelection.title)}});
            writeSequence();
        }
        return mDocument.finish();
    }

private:
    std::string newId() { return fmt::format("r{}", ++mLastId); }

    void writeResources() {
        const XmlText::Element resources(mDocument, "resources");
        for (const EditCut& cut : mList.cuts) {
            if (!mAssets.contains(cut.clip)) writeAsset(cut);
        }
    }

    void writeAsset(const EditCut& cut) {
        const FormClip& clip = mSelection.clips[cut.clip];
        const ClipClock& clock = *clip.clock;
        const std::string format = newId();
        mFormats[cut.clip] = format;
        mDocument.empty("format",
                        {{"id", format},
                         {"frameDuration", fmt::format("{}/{}s", clock.rate.seconds, clock.rate.frames)},
                         {"width", clock.width > 0 ? std::to_string(clock.width) : ""},
                         {"height", clock.height > 0 ? std::to_string(clock.height) : ""}});
        const std::string asset = newId();
        mAssets[cut.clip] = asset;
        const std::int64_t frames = clock.frameCount > 0 ? clock.frameCount : cut.end;
        mDocument.empty("asset",
                        {{"id", asset},
                         {"name", clean(clip.name)},
                         {"src", fileUrl(clock)},
                         {"start", seconds(clock.startFrame, clock.rate)},
                         {"duration", seconds(frames, clock.rate)},
                         {"hasVideo", clock.hasVideo ? "1" : "0"},
                         {"format", format},
                         {"hasAudio", clock.hasAudio ? "1" : "0"},
                         {"audioSources", clock.hasAudio ? "1" : ""},
                         {"audioChannels", clock.channels > 0 ? std::to_string(clock.channels) : ""},
                         {"audioRate", clock.sampleRate > 0 ? std::to_string(clock.sampleRate) : ""}});
    }

    void writeSequence() {
        std::int64_t length = 0;
        for (const EditCut& cut : mList.cuts)
            length += mList.recordLength(mSelection, cut);
        const XmlText::Element sequence(mDocument, "sequence",
                                        {{"format", mFormats[mList.cuts.front().clip]},
                                         {"duration", seconds(length, mList.rate)},
                                         {"tcStart", seconds(mList.recordStart, mList.rate)},
                                         {"tcFormat", counting(mList.rate)}});
        const XmlText::Element spine(mDocument, "spine");
        std::int64_t offset = 0;
        for (const EditCut& cut : mList.cuts) {
            writeCut(cut, offset);
            offset += mList.recordLength(mSelection, cut);
        }
    }

    void writeCut(const EditCut& cut, std::int64_t offset) {
        const FormClip& clip = mSelection.clips[cut.clip];
        const ClipClock& clock = *clip.clock;
        const XmlText::Element element(
            mDocument, "asset-clip",
            {{"name", clean(clip.name)},
             {"ref", mAssets[cut.clip]},
             {"offset", seconds(offset, mList.rate)},
             {"start", seconds(clock.startFrame + cut.begin, clock.rate)},
             {"duration", seconds(mList.recordLength(mSelection, cut), mList.rate)},
             {"format", mFormats[cut.clip]},
             {"tcFormat", counting(clock.rate)}});
        for (const EditMarker& marker : cut.markers) {
            mDocument.empty("marker", {{"start", seconds(clock.startFrame + marker.frame, clock.rate)},
                                       {"duration", seconds(marker.length, clock.rate)},
                                       {"value", clean(marker.name.empty() ? marker.note : marker.name)},
                                       {"note", clean(marker.note)}});
        }
    }

    const Selection& mSelection;
    const EditList& mList;
    XmlText mDocument;
    int mLastId = 0;
    std::map<std::size_t, std::string> mFormats;
    std::map<std::size_t, std::string> mAssets;
};

} // namespace

Written writeFcpxml(const Selection& selection, const FormOptions& options) {
    const EditList list = editListOf(selection, options);
    return {Fcpxml(selection, list).write(), ""};
}

} // namespace kestrel
