#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/FormRequest.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/forms/Sources.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <Poco/TemporaryFile.h>
#include <fmt/format.h>

#include <map>
#include <memory>
#include <set>

namespace kestrel {

namespace {

struct DumpOptions {
    std::string clip;
    std::string project; ///< Empty: any.
    FormRequest form;
};

/// The layouts that the library writes itself.
const std::map<std::string, KsNNFileExportType>& layouts() {
    static const std::map<std::string, KsNNFileExportType> all{
        {"check", KsNNExportStatusLine}, {"text", KsNNExportText}, {"subtitles", KsNNExportSubtitles}};
    return all;
}

/// The library opens the file itself and leaves half of one behind when the disk is full; so it gets one of
/// ours, and the user's is replaced when that is whole.
std::string dumped(KsNNDatabase& store, KsNNDB_STTClipEntry& entry, const ClipClock& clock,
                   KsNNFileExportType layout) {
    std::vector<KsNNTC> timecodes;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        const auto label = [&](std::int32_t ms) {
            return timecodeOf(clock.startFrame + clock.rate.frameAt(ms), clock.rate);
        };
        timecodes.push_back({label(startOf(segment)), label(endOf(segment))});
    }
    const Poco::TemporaryFile file;
    std::string path = file.path();
    check(store.DumpDBContentsToFile(entry, path, layout, timecodes, false, ""), store,
          fmt::format("the transcript of {} cannot be written", entry.clipName));
    return readFile(path);
}

int dump(const DumpOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const Clip clip = findClip(store, home, options.clip, options.project);
    KsNNDB_STTClipEntry entry = readClip(store, clip);
    const FormRequest& request = options.form;
    const FormClip described = describeClip(clip, entry, request);
    if (const auto layout = layouts().find(request.format); layout != layouts().end()) {
        if (!described.clock)
            tell(fmt::format("the media of {} is not at hand: time codes count 25 frames a second from "
                             "00:00:00:00; --frame-rate and --start-timecode name others",
                             entry.clipName));
        writeOut(request, dumped(store, entry, described.clock.value_or(ClipClock{}), layout->second));
    } else {
        const std::vector<Passage> passages = passagesOf(entry, speakerNames(store));
        writeOut(request, transcriptSelection(described, passages, request.form().isEdit));
    }
    if (!entry.progressComplete)
        tell("the transcript is not complete: run `kestrel transcribe` on the file again to complete it");
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<DumpOptions>();
    std::set<std::string> names;
    for (const auto& layout : layouts())
        names.insert(layout.first);
    for (const auto& form : forms())
        names.insert(form.first);
    app.add_option("CLIP", options->clip, kClipHelp)->required();
    addAnyProjectOption(app, options->project);
    app.add_option("--format", options->form.format, "Form of the output, see below")
        ->required()
        ->check(CLI::IsMember(names).description(""));
    addFormOptions(app, options->form);
    app.footer(
        "Forms:\n"
        "  check   words with their times, to check a transcript by\n"
        "  text    text with speakers and time codes\n"
        "  subtitles  script for subtitling programs\n" +
        formList() +
        "\nForms for editing programs hold the turns of the speakers as markers on the clip, or with "
        "--string-out\none after another.\n\n"
        "Examples:\n  kestrel dump interview.mov --format srt --output interview.srt\n"
        "  kestrel dump interview.mov --format text --frame-rate 29.97df --start-timecode \"01:00:00;00\"\n"
        "  kestrel dump interview.mov --format edl --string-out --handles 0.5");
    return [options] { return dump(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "dump",
                                         "Write a clip's transcript as subtitles, text, a table or markers",
                                         setUp});

} // namespace

} // namespace kestrel
