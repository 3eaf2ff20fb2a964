#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/forms/Forms.h"
#include "apps/kestrel/media/ClipClock.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace kestrel {

/// The form in which a command writes its results, as the options say.
struct FormRequest {
    std::string format; ///< Empty: the command's own way.
    ClockOptions clock;
    FormOptions options;
    bool stringOut = false;
    double handleSeconds = 0.0;
    bool isSourceTime = false;    ///< Times are the media's time code, not those of the clip.
    std::filesystem::path output; ///< Empty: standard output.

    const Form& form() const;
};

/// Names of all forms, with what they are: for the help.
std::string formList();

/// Adds what all forms share. `--format` itself is the command's, which may know forms of its own.
void addFormOptions(CLI::App& app, FormRequest& request);
/// Adds the options that say what the media does not; they are among those of `addFormOptions`.
void addClockOptions(CLI::App& app, ClockOptions& options);
/// Adds --timecode, for the times that a command shows.
void addTimecodeOption(CLI::App& app, FormRequest& request);

/// A clip with its clock, which is read from its media if that is where it was transcribed, and otherwise
/// made from the options. Without either, only forms for editing programs fail.
FormClip describeClip(const Clip& clip, const KsNNDB_STTClipEntry& entry, const FormRequest& request);

/// Writes times of the clip as they are asked for.
/// @throws Failure when the media's time code is asked for, and neither media nor options say it.
using TimeLabel = std::function<std::string(std::int64_t milliseconds)>;
TimeLabel timeLabelOf(const Clip& clip, const KsNNDB_STTClipEntry& entry, const FormRequest& request);

/// Writes to the file asked for, or to standard output.
void writeOut(const FormRequest& request, const std::string& text);
/// Writes a selection in the form asked for, and says what the user should know about it.
void writeOut(const FormRequest& request, const Selection& selection);

} // namespace kestrel
