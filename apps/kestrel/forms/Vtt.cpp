#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/forms/Forms.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

/// Text of a cue knows three characters that it cannot hold as they are; they also stand for themselves in
/// "-->", which may not occur.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

} // namespace

Written writeVtt(const Selection& selection, const FormOptions& options) {
    const Subtitles subtitles = subtitlesOf(selection, options, SpeakerNames::Apart);
    std::string text = "WEBVTT\n\n";
    for (const Cue& cue : subtitles.cues) {
        text += fmt::format("{} --> {}\n", timecode(cue.startMs), timecode(cue.endMs));
        if (!cue.speaker.empty()) text += fmt::format("<v {}>", escaped(cue.speaker));
        text += escaped(fmt::format("{}", fmt::join(cue.lines, "\n"))) + "\n\n";
    }
    return {std::move(text), readingWarning(subtitles, options.subtitles)};
}

} // namespace kestrel
