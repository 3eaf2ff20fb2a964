#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/forms/Forms.h"

#include <fmt/format.h>

namespace kestrel {

Written writeTxt(const Selection& selection, const FormOptions&) {
    std::string text;
    for (std::size_t i = 0; i < selection.items.size(); ++i) {
        const FormItem& item = selection.items[i];
        const FormItem* before = i == 0 ? nullptr : &selection.items[i - 1];
        const FormClip& clip = selection.clips.at(item.clip);
        const bool isAnotherClip = before == nullptr || before->clip != item.clip;
        if (isAnotherClip) text += fmt::format("{}{}\n", i == 0 ? "" : "\n", clip.name);
        if (isAnotherClip || before->passage.speaker != item.passage.speaker) {
            const std::string when =
                clip.clock ? timecodeOf(clip.clock->startFrame + clip.clock->rate.frameAt(item.markMs),
                                        clip.clock->rate)
                           : timecode(item.markMs);
            text += fmt::format("\n{}  {}\n", when, item.passage.speaker);
        }
        text += item.passage.text + "\n";
    }
    return {std::move(text), ""};
}

} // namespace kestrel
