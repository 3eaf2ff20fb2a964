#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/forms/Forms.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

std::string srtTime(std::int64_t ms) {
    std::string time = timecode(ms);
    time[time.rfind('.')] = ',';
    return time;
}

/// SubRip has no way to write a "<" that players do not take for a tag, whose text they would hide.
std::string withoutTags(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '<')
            result += "\u2039";
        else if (character == '>')
            result += "\u203a";
        else
            result += character;
    }
    return result;
}

} // namespace

Written writeSrt(const Selection& selection, const FormOptions& options) {
    const Subtitles subtitles = subtitlesOf(selection, options, SpeakerNames::InText);
    std::string text;
    for (std::size_t i = 0; i < subtitles.cues.size(); ++i) {
        const Cue& cue = subtitles.cues[i];
        text += fmt::format("{}\n{} --> {}\n{}\n\n", i + 1, srtTime(cue.startMs), srtTime(cue.endMs),
                            withoutTags(fmt::format("{}", fmt::join(cue.lines, "\n"))));
    }
    return {std::move(text), readingWarning(subtitles, options.subtitles)};
}

} // namespace kestrel
