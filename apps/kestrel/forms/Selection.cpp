#include "apps/kestrel/forms/Selection.h"

#include <algorithm>
#include <utility>

namespace kestrel {

FormItem itemOf(std::size_t clip, Passage passage) {
    FormItem item;
    item.clip = clip;
    item.markMs = passage.startMs;
    item.markEndMs = passage.endMs;
    item.label = passage.speaker;
    item.note = passage.text;
    item.passage = std::move(passage);
    return item;
}

const ClipClock& clockOf(const Selection& selection, const FormItem& item) {
    static const ClipClock unknown;
    const auto& clock = selection.clips.at(item.clip).clock;
    return clock ? *clock : unknown;
}

std::vector<Cut> cutsOf(const Selection& selection, std::int64_t handleMs) {
    std::vector<Cut> cuts;
    for (std::size_t i = 0; i < selection.items.size(); ++i) {
        const FormItem& item = selection.items[i];
        const ClipClock& clock = clockOf(selection, item);
        const std::int64_t begin =
            std::max<std::int64_t>(clock.rate.frameAt(item.passage.startMs - handleMs), 0);
        std::int64_t end = clock.rate.frameFrom(item.passage.endMs + handleMs);
        if (clock.frameCount > 0) end = std::min(end, clock.frameCount);
        cuts.push_back({i, begin, std::max(end, begin + 1)});
    }
    return cuts;
}

} // namespace kestrel
