#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/forms/EditList.h"

namespace kestrel {

namespace {

using Poco::JSON::Array;
using Poco::JSON::Object;

Object::Ptr schema(const char* name) {
    auto object = jsonObject();
    object->set("OTIO_SCHEMA", name);
    return object;
}

Object::Ptr time(std::int64_t frame, const FrameRate& rate) {
    auto object = schema("RationalTime.1");
    object->set("rate", rate.perSecond());
    object->set("value", static_cast<double>(frame));
    return object;
}

Object::Ptr range(std::int64_t begin, std::int64_t length, const FrameRate& rate) {
    auto object = schema("TimeRange.1");
    object->set("start_time", time(begin, rate));
    object->set("duration", time(length, rate));
    return object;
}

Object::Ptr note(const std::string& text) {
    auto metadata = jsonObject();
    auto own = jsonObject();
    own->set("note", text);
    metadata->set("kestrel", own);
    return metadata;
}

Object::Ptr marker(const EditMarker& from, const ClipClock& clock) {
    auto object = schema("Marker.2");
    object->set("name", from.name);
    object->set("color", "RED");
    object->set("comment", from.note);
    object->set("marked_range", range(clock.startFrame + from.frame, from.length, clock.rate));
    object->set("metadata", note(from.note));
    return object;
}

Object::Ptr reference(const FormClip& clip) {
    const ClipClock& clock = *clip.clock;
    const std::string url = fileUrl(clock);
    auto object = schema(url.empty() ? "MissingReference.1" : "ExternalReference.1");
    object->set("name", clip.name);
    object->set("available_range",
                clock.frameCount > 0
                    ? Poco::Dynamic::Var(range(clock.startFrame, clock.frameCount, clock.rate))
                    : Poco::Dynamic::Var());
    object->set("metadata", jsonObject());
    if (!url.empty()) object->set("target_url", url);
    return object;
}

/// Times of a clip are those of its media: its own time code counts.
Object::Ptr clip(const FormClip& from, const EditCut& cut, bool withMarkers) {
    const ClipClock& clock = *from.clock;
    auto object = schema("Clip.2");
    object->set("name", from.name);
    object->set("source_range", range(clock.startFrame + cut.begin, cut.end - cut.begin, clock.rate));
    Array::Ptr markers = new Array;
    for (const EditMarker& one : cut.markers) {
        if (withMarkers) markers->add(marker(one, clock));
    }
    object->set("markers", markers);
    object->set("effects", Array::Ptr(new Array));
    object->set("metadata", jsonObject());
    auto references = jsonObject();
    references->set("DEFAULT_MEDIA", reference(from));
    object->set("media_references", references);
    object->set("active_media_reference_key", "DEFAULT_MEDIA");
    return object;
}

/// @param takes Says whether a clip has anything for this track.
template <typename Takes>
Object::Ptr track(const char* kind, const Selection& selection, const EditList& list, bool withMarkers,
                  Takes takes) {
    auto object = schema("Track.1");
    object->set("name", kind);
    object->set("kind", kind);
    Array::Ptr children = new Array;
    for (const EditCut& cut : list.cuts) {
        const FormClip& from = selection.clips[cut.clip];
        if (takes(*from.clock)) {
            children->add(clip(from, cut, withMarkers));
        } else {
            auto gap = schema("Gap.1");
            gap->set("source_range", range(0, cut.end - cut.begin, from.clock->rate));
            children->add(gap);
        }
    }
    object->set("children", children);
    object->set("metadata", jsonObject());
    return object;
}

} // namespace

Written writeOtio(const Selection& selection, const FormOptions& options) {
    const EditList list = editListOf(selection, options);
    const auto hasVideo = [](const ClipClock& clock) { return clock.hasVideo; };
    const auto hasAudio = [](const ClipClock& clock) { return clock.hasAudio; };
    const auto any = [&](auto takes) {
        for (const EditCut& cut : list.cuts) {
            if (takes(*selection.clips[cut.clip].clock)) return true;
        }
        return false;
    };
    const bool video = any(hasVideo);
    Array::Ptr tracks = new Array;
    if (video) tracks->add(track("Video", selection, list, true, hasVideo));
    if (any(hasAudio)) tracks->add(track("Audio", selection, list, !video, hasAudio));

    auto stack = schema("Stack.1");
    stack->set("name", "tracks");
    stack->set("children", tracks);
    stack->set("metadata", jsonObject());
    auto timeline = schema("Timeline.1");
    timeline->set("name", selection.title);
    timeline->set("global_start_time", time(list.recordStart, list.rate));
    timeline->set("tracks", stack);
    timeline->set("metadata", jsonObject());
    return {toText(timeline), ""};
}

} // namespace kestrel
