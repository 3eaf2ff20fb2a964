#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ClipLabels.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/FormRequest.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct ShowOptions {
    std::string clip;
    std::string project; ///< Empty: any.
    bool json = false;
    FormRequest form; ///< For its time codes.
};

Poco::JSON::Array::Ptr wordsOf(const KsNNDBEntrySeg& segment) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const TimedWord& word : timedWords(segment)) {
        auto object = jsonObject();
        object->set("text", word.text);
        object->set("startMS", word.startMs);
        object->set("endMS", word.endMs);
        if (word.confidence) object->set("confidence", *word.confidence);
        list->add(object);
    }
    return list;
}

void printJson(const Clip& clip, const KsNNDB_STTClipEntry& entry, SpeakerLookup& names,
               const TimeLabel& time) {
    auto document = jsonObject();
    document->set("clip", clip.id);
    document->set("clipName", entry.clipName);
    document->set("path", clip.path);
    document->set("project", entry.projectName);
    document->set("model", entry.model);
    document->set("audioTracks", entry.audioTracks);
    document->set("clientApp", entry.clientApp);
    document->set("complete", entry.progressComplete);
    Poco::JSON::Array::Ptr segments = new Poco::JSON::Array;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        auto object = jsonObject();
        object->set("segment", segment.segment);
        object->set("timecode", time(startOf(segment)));
        object->set("startMS", startOf(segment));
        object->set("endMS", endOf(segment));
        object->set("speaker", segment.speakerID);
        object->set("speakerName", names.nameOf(segment));
        object->set("language", segment.language);
        object->set("text", segment.transcript);
        object->set("words", wordsOf(segment));
        object->set("wordStartsMS", jsonArray(segment.wordStartsMS));
        object->set("wordEndsMS", jsonArray(segment.wordEndsMS));
        segments->add(object);
    }
    document->set("segments", segments);
    printResult(document);
}

void printText(const Clip& clip, const KsNNDB_STTClipEntry& entry, SpeakerLookup& names,
               const TimeLabel& time) {
    std::string text =
        fmt::format("{}\nproject {}, clip {}\n{}, {}\n", emphasised(printableName(entry.clipName)),
                    entry.projectName, shortIdentifier(clip.id), entry.audioTracks, entry.model);
    if (!clip.path.empty()) text += fmt::format("{}{}\n", printableName(clip.path), dayOf(clip.path));
    std::string speaker;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        if (const std::string name = names.display(segment); name != speaker) {
            speaker = name;
            text += fmt::format("\n{}\n", speaker);
        }
        text += fmt::format("{}  {}\n", time(startOf(segment)), segment.transcript);
    }
    printResult(text);
}

int show(const ShowOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const Clip clip = findClip(store, home, options.clip, options.project);
    const KsNNDB_STTClipEntry entry = readClip(store, clip);
    SpeakerLookup names(store);
    const TimeLabel time = timeLabelOf(clip, entry, options.form);
    if (options.json)
        printJson(clip, entry, names, time);
    else
        printText(clip, entry, names, time);
    if (!entry.progressComplete)
        tell("the transcript is not complete: run `kestrel transcribe` on the file again to complete it");
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ShowOptions>();
    app.add_option("CLIP", options->clip, kClipHelp)->required();
    addAnyProjectOption(app, options->project);
    addTimecodeOption(app, options->form);
    addClockOptions(app, options->form.clock);
    addJsonFlag(app, options->json);
    app.footer("Examples:\n  kestrel show interview.mov\n  kestrel show interview.mov --timecode source\n"
               "  kestrel show 3f9a1c77 --json");
    return [options] { return show(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "show",
                                         "Show a clip's transcript with times and speakers", setUp});

} // namespace

} // namespace kestrel
