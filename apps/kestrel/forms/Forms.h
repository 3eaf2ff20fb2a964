#pragma once

#include "apps/kestrel/forms/Cues.h"
#include "apps/kestrel/forms/Selection.h"

#include <cstdint>
#include <map>
#include <string>

/// The forms in which transcripts, hits and script lines leave: one source file each.
namespace kestrel {

/// How items stand in a form that has a time line.
enum class Layout {
    Markers,   ///< The clips whole, the items as markers on them.
    StringOut, ///< The parts of the clips that hold the items, one after another.
};

struct FormOptions {
    SubtitleRules subtitles;
    Layout layout = Layout::Markers;
    std::int64_t handleMs = 0;               ///< Added on either side of each part of a string-out.
    std::string recordStart = "01:00:00:00"; ///< Time code at which a string-out begins.
};

struct Written {
    std::string text;
    std::string warning; ///< What the user should know; usually empty.
};

/// A way of writing a selection out.
struct Form {
    /// @throws Failure or UsageError when the selection does not fit the form.
    Written (*write)(const Selection& selection, const FormOptions& options) = nullptr;
    bool isEdit = false; ///< For editing programs: needs the clocks of the clips.
    const char* summary = "";
};

/// All forms by the name that users give.
const std::map<std::string, Form>& forms();

Written writeSrt(const Selection& selection, const FormOptions& options);
Written writeVtt(const Selection& selection, const FormOptions& options);
Written writeTtml(const Selection& selection, const FormOptions& options);
Written writeJson(const Selection& selection, const FormOptions& options);
Written writeTsv(const Selection& selection, const FormOptions& options);
Written writeCsv(const Selection& selection, const FormOptions& options);
Written writeRttm(const Selection& selection, const FormOptions& options);
Written writeTxt(const Selection& selection, const FormOptions& options);
Written writeOtio(const Selection& selection, const FormOptions& options);
Written writeEdl(const Selection& selection, const FormOptions& options);
Written writeFcpxml(const Selection& selection, const FormOptions& options);

/// The subtitles of a selection: in the time of its one clip, or of the string-out.
/// @throws UsageError when it holds several clips and is no string-out.
Subtitles subtitlesOf(const Selection& selection, const FormOptions& options, SpeakerNames names);
/// Says how many subtitles cannot be read in time; empty when all can.
std::string readingWarning(const Subtitles& subtitles, const SubtitleRules& rules);

} // namespace kestrel
