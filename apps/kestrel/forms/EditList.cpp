#include "apps/kestrel/forms/EditList.h"

#include "apps/kestrel/base/Failure.h"

#include <Poco/URI.h>
#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

namespace {

EditMarker markerOf(const FormItem& item, const FrameRate& rate) {
    EditMarker marker;
    marker.frame = std::max<std::int64_t>(rate.frameAt(item.markMs), 0);
    marker.length = std::max<std::int64_t>(rate.frameFrom(item.markEndMs) - marker.frame, 1);
    marker.name = item.label;
    marker.note = item.note;
    return marker;
}

/// Each clip that has items, whole.
std::vector<EditCut> wholeClips(const Selection& selection) {
    std::vector<EditCut> cuts;
    for (const FormItem& item : selection.items) {
        const ClipClock& clock = clockOf(selection, item);
        auto cut = std::find_if(cuts.begin(), cuts.end(),
                                [&](const EditCut& known) { return known.clip == item.clip; });
        if (cut == cuts.end()) cut = cuts.insert(cut, {item.clip, 0, clock.frameCount, {}});
        cut->markers.push_back(markerOf(item, clock.rate));
        // A transcript may run a little beyond what the file says of its own length.
        cut->end = std::max(cut->end, cut->markers.back().frame + 1);
    }
    return cuts;
}

std::vector<EditCut> stringOut(const Selection& selection, std::int64_t handleMs) {
    std::vector<EditCut> cuts;
    for (const Cut& part : cutsOf(selection, handleMs)) {
        const FormItem& item = selection.items[part.item];
        // Two hits in one segment are one cut with two markers.
        const bool isSame = !cuts.empty() && cuts.back().clip == item.clip &&
                            cuts.back().begin == part.begin && cuts.back().end == part.end;
        if (!isSame) cuts.push_back({item.clip, part.begin, part.end, {}});
        EditMarker marker = markerOf(item, clockOf(selection, item).rate);
        marker.frame = std::clamp(marker.frame, part.begin, part.end - 1);
        marker.length = std::min(marker.length, part.end - marker.frame);
        cuts.back().markers.push_back(std::move(marker));
    }
    return cuts;
}

} // namespace

std::int64_t EditList::recordLength(const Selection& selection, const EditCut& cut) const {
    const FrameRate& own = selection.clips.at(cut.clip).clock.value().rate;
    const std::int64_t length = cut.end - cut.begin;
    if (own.frames == rate.frames && own.seconds == rate.seconds) return length;
    const double seconds = static_cast<double>(length) / own.perSecond();
    return std::max<std::int64_t>(std::llround(seconds * rate.perSecond()), 1);
}

EditList editListOf(const Selection& selection, const FormOptions& options) {
    if (selection.items.empty()) throw Failure("there is nothing to write into an edit");
    for (const FormItem& item : selection.items) {
        const FormClip& clip = selection.clips.at(item.clip);
        if (!clip.clock)
            throw Failure(fmt::format("the media of {} could not be read, so its time code is unknown; name "
                                      "--frame-rate and --start-timecode",
                                      clip.name));
    }
    EditList list;
    const ClipClock& first = clockOf(selection, selection.items.front());
    list.rate = first.rate;
    if (options.layout == Layout::StringOut) {
        list.recordStart = frameOfTimecode(options.recordStart, list.rate);
        list.cuts = stringOut(selection, options.handleMs);
    } else {
        list.recordStart = first.startFrame;
        list.cuts = wholeClips(selection);
    }
    return list;
}

std::string fileUrl(const ClipClock& clock) {
    if (clock.file.empty()) return "";
    Poco::URI uri;
    uri.setScheme("file");
    uri.setPath(clock.file.string());
    const std::string text = uri.toString();
    // Poco leaves out the empty authority, which some readers insist on.
    const std::string scheme = "file:";
    return text.starts_with(scheme + "//") ? text : scheme + "//" + text.substr(scheme.size());
}

} // namespace kestrel
