#include "apps/kestrel/commands/FormRequest.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/terminal/Output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace kestrel {

namespace {

constexpr const char* kSubtitleGroup = "Subtitles (srt, vtt, ttml)";
constexpr const char* kEditGroup = "Time codes and edits (otio, edl, fcpxml)";

std::int64_t lengthOf(const KsNNDB_STTClipEntry& entry) {
    std::int64_t length = 0;
    for (const KsNNDBEntrySeg& segment : entry.segments)
        length = std::max<std::int64_t>(length, endOf(segment));
    return length;
}

void tellAssumedRate(const FormClip& clip) {
    if (clip.clock && !clip.clock->hasOwnRate)
        tell(fmt::format("{} has no frame rate of its own: its time codes count {} frames a second; "
                         "--frame-rate names another rate",
                         clip.name, clip.clock->rate.name()));
}

} // namespace

const Form& FormRequest::form() const {
    return forms().at(format);
}

std::string formList() {
    std::string list;
    for (const auto& [name, form] : forms())
        list += fmt::format("  {:<8}{}\n", name, form.summary);
    return list;
}

void addFormOptions(CLI::App& app, FormRequest& request) {
    SubtitleRules& rules = request.options.subtitles;
    app.add_option("--output", request.output, "File to write instead of standard output");
    const auto add = [&](const char* name, auto& value, const char* help, const char* group) {
        return app.add_option(name, value, help)->capture_default_str()->group(group);
    };
    add("--line-length", rules.lineLength, "Columns of a line", kSubtitleGroup)->check(CLI::Range(8, 200));
    add("--lines", rules.lines, "Lines shown at once", kSubtitleGroup)->check(CLI::Range(1, 8));
    add("--reading-speed", rules.readingSpeed, "Characters a second", kSubtitleGroup)
        ->check(CLI::Range(1.0, 1000.0));
    add("--shortest-gap", rules.shortestGapMs, "Milliseconds between two subtitles", kSubtitleGroup)
        ->check(CLI::Range(0, 10'000));
    add("--shortest", rules.shortestMs, "Milliseconds that a subtitle stays at least", kSubtitleGroup)
        ->check(CLI::Range(0, 10'000));
    add("--longest", rules.longestMs, "Milliseconds that a subtitle stays at most", kSubtitleGroup)
        ->check(CLI::Range(500, 60'000));
    app.add_flag("--speakers", rules.speakers, "Say who speaks, where the speaker changes")
        ->group(kSubtitleGroup);
    addClockOptions(app, request.clock);
    app.add_flag("--string-out", request.stringOut,
                 "One part after another, instead of markers on the whole clip")
        ->group(kEditGroup);
    add("--handles", request.handleSeconds, "Seconds that a string-out adds before and after each part",
        kEditGroup)
        ->check(CLI::Range(0.0, 60.0));
    add("--record-start", request.options.recordStart, "Time code at which a string-out begins", kEditGroup);
}

void addClockOptions(CLI::App& app, ClockOptions& options) {
    app.add_option("--frame-rate", options.frameRate,
                   "24, 25, 29.97, 29.97df (drop-frame), 30000/1001 ... (default: the media's, or 25)")
        ->group(kEditGroup);
    app.add_option("--start-timecode", options.startTimecode,
                   "Time code of the clip's first frame (default: the media's, or 00:00:00:00)")
        ->group(kEditGroup);
}

void addTimecodeOption(CLI::App& app, FormRequest& request) {
    static const std::map<std::string, bool> kinds{{"clip", false}, {"source", true}};
    app.add_option("--timecode", request.isSourceTime,
                   "Write times from the beginning of the clip, or as the media's time code, with frames "
                   "(default: clip)")
        ->transform(oneOf(kinds));
}

FormClip describeClip(const Clip& clip, const KsNNDB_STTClipEntry& entry, const FormRequest& request) {
    FormClip described{clip.id, entry.clipName, entry.projectName, std::nullopt};
    std::error_code error;
    if (!clip.path.empty() && std::filesystem::is_regular_file(clip.path, error)) {
        try {
            described.clock = readClock(clip.path, request.clock);
            return described;
        } catch (const UsageError&) {
            throw;
        } catch (const Failure& failure) {
            tell(fmt::format("{} {}", clip.path, failure.what()));
        }
    }
    if (!request.clock.frameRate.empty() || !request.clock.startTimecode.empty())
        described.clock = makeClock(request.clock, lengthOf(entry));
    return described;
}

TimeLabel timeLabelOf(const Clip& clip, const KsNNDB_STTClipEntry& entry, const FormRequest& request) {
    if (!request.isSourceTime) return timecode;
    const FormClip described = describeClip(clip, entry, request);
    if (!described.clock)
        throw Failure(fmt::format("the time code of {} is unknown, since its media is not where it was "
                                  "transcribed: name --frame-rate and --start-timecode",
                                  described.name));
    tellAssumedRate(described);
    return [clock = *described.clock](std::int64_t milliseconds) { return clock.timecodeAt(milliseconds); };
}

void writeOut(const FormRequest& request, const std::string& text) {
    if (request.output.empty())
        printResult(text);
    else
        writeUserFile(request.output, text);
}

void writeOut(const FormRequest& request, const Selection& selection) {
    FormOptions options = request.options;
    options.layout = request.stringOut ? Layout::StringOut : Layout::Markers;
    options.handleMs = std::llround(request.handleSeconds * 1000.0);
    const Form& form = request.form();
    if (form.isEdit) {
        for (const FormClip& clip : selection.clips)
            tellAssumedRate(clip);
    }
    const Written written = form.write(selection, options);
    writeOut(request, written.text);
    if (!written.warning.empty()) tell(written.warning);
}

} // namespace kestrel
