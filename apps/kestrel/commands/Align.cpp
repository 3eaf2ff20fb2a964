#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/FormRequest.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/forms/Sources.h"
#include "apps/kestrel/script/Encoding.h"
#include "apps/kestrel/script/HtmlPage.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <tuple>

namespace kestrel {

namespace {

struct AlignOptions {
    std::filesystem::path script;
    std::string clip;
    std::string project; ///< Empty: any.
    std::string range;   ///< Empty: the whole clip.
    ScriptFormat format = ScriptFormat::Auto;
    std::filesystem::path html; ///< Empty: no page.
    bool json = false;
    FormRequest form;
};

constexpr std::size_t kLargestScript = std::size_t{16} << 20;

std::string readText(const std::filesystem::path& file) {
    const std::string bytes = readFile(file, kLargestScript);
    try {
        const DecodedText decoded = decodeText(bytes);
        if (!decoded.encoding.empty())
            tell(fmt::format("{} is not UTF-8; it is read as {}", printableName(file.string()),
                             decoded.encoding));
        return decoded.text;
    } catch (const Failure& failure) {
        throw Failure(fmt::format("{} {}", printableName(file.string()), failure.what()));
    }
}

std::vector<ScriptLine> spokenLines(const AlignOptions& options) {
    std::vector<ScriptLine> lines = readScript(readText(options.script), options.format);
    keepSpokenLines(lines);
    if (lines.empty())
        throw Failure(fmt::format("{} holds no spoken line{}", printableName(options.script.string()),
                                  options.format == ScriptFormat::Plain ? "" : "; try --format plain"));
    return lines;
}

/// The part of the clip to align with; its times count from the start of the range.
KsNNDB_STTClipEntry partOf(KsNNDB_STTClipEntry entry, const KsNNDatabase& store, const Clip& clip,
                           std::int32_t startMs, std::int32_t endMs) {
    check(KsNNDatabase::sliceEntries(startMs, endMs, entry), store, "the range cannot be cut out");
    if (entry.segments.front().wordStartsMS.empty())
        throw Failure(fmt::format("nothing is said in {} from {} to {}", clip.name, timecode(startMs),
                                  timecode(endMs)));
    return entry;
}

void printText(const std::vector<PlacedLine>& lines, const TimeLabel& time) {
    std::string text;
    for (const PlacedLine& line : lines) {
        const std::string where =
            line.isFound() ? fmt::format("{}  {:.2f}  {}", time(line.startMs), line.score, line.word)
                           : fmt::format("{:->{}}  0.00  not found", "", time(0).size());
        text += fmt::format("{:5}  {:<34}  {}\n", line.script.number, where, line.script.text);
    }
    printResult(text);
}

Poco::JSON::Object::Ptr toJson(const PlacedLine& line, const TimeLabel& time) {
    auto object = jsonObject();
    object->set("line", line.script.number);
    if (!line.script.character.empty()) object->set("character", line.script.character);
    object->set("text", line.script.text);
    object->set("found", line.isFound());
    object->set("score", roundedScore(line.score));
    if (line.isFound()) {
        object->set("timecode", time(line.startMs));
        object->set("startMS", line.startMs);
        object->set("segment", line.segment);
        object->set("wordIndex", line.wordIndex);
        object->set("word", line.word);
    }
    return object;
}

void printJson(const AlignOptions& options, const Clip& clip, const KsNNDB_STTClipEntry& entry,
               const std::vector<PlacedLine>& lines, const TimeLabel& time) {
    auto document = jsonObject();
    document->set("script", options.script.string());
    document->set("clip", clip.id);
    document->set("clipName", entry.clipName);
    document->set("path", clip.path);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const PlacedLine& line : lines)
        list->add(toJson(line, time));
    document->set("lines", list);
    printResult(document);
}

void writePage(const std::filesystem::path& file, const std::string& page) {
    writeUserFile(file, page);
    tell(fmt::format("the page is {}", printableName(file.string())));
}

int align(const AlignOptions& options) {
    std::int32_t startMs = 0;
    std::int32_t endMs = 0;
    if (!options.range.empty()) std::tie(startMs, endMs) = parseRange(options.range);
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::vector<ScriptLine> script = spokenLines(options);
    const Clip clip = findClip(store, home, options.clip, options.project);
    const KsNNDB_STTClipEntry whole = readClip(store, clip);
    const KsNNDB_STTClipEntry entry =
        options.range.empty() ? whole : partOf(whole, store, clip, startMs, endMs);
    const std::vector<PlacedLine> lines = placeLines(store, script, entry, startMs);

    const TimeLabel time = timeLabelOf(clip, whole, options.form);
    if (!options.html.empty())
        writePage(options.html, alignmentPage(options.script.filename().string(), lines, entry, startMs,
                                              {time, speakerNames(store)}));
    if (!options.form.format.empty())
        writeOut(options.form, scriptSelection(describeClip(clip, whole, options.form),
                                               passagesOf(whole, speakerNames(store)), lines));
    else if (options.json)
        printJson(options, clip, entry, lines, time);
    else
        printText(lines, time);
    const auto found =
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.isFound(); });
    tell(fmt::format("{} of {} lines found", found, lines.size()));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    static const std::map<std::string, ScriptFormat> formats{{"auto", ScriptFormat::Auto},
                                                             {"plain", ScriptFormat::Plain},
                                                             {"screenplay", ScriptFormat::Screenplay}};
    auto options = std::make_shared<AlignOptions>();
    app.add_option("SCRIPT", options->script, "Script: plain text, Fountain, or a screenplay as text")
        ->required()
        ->check(CLI::ExistingFile);
    app.add_option("--clip", options->clip, kClipHelp)->required();
    addAnyProjectOption(app, options->project);
    app.add_option("--range", options->range, "Part of the clip, START-END: 1:30-2:45, or in seconds 90-165");
    app.add_option("--format", options->format, "How the script is written (default: auto)")
        ->transform(oneOf(formats));
    app.add_option("--html", options->html, "Also write a page with script and transcript side by side");
    CLI::Option* json = addJsonFlag(app, options->json);
    std::set<std::string> names;
    for (const auto& [name, form] : forms()) {
        if (form.isEdit) names.insert(name);
    }
    app.add_option("--markers", options->form.format,
                   "Write the lines that were found as markers: otio, edl or fcpxml")
        ->check(CLI::IsMember(names).description(""))
        ->excludes(json);
    addTimecodeOption(app, options->form);
    addFormOptions(app, options->form);
    app.footer("Writes line, time, score, the word where the line begins, and the line.\n\n"
               "Examples:\n  kestrel align scene12.fountain --clip interview.mov --timecode source\n"
               "  kestrel align scene12.fountain --clip interview.mov --markers edl --output scene12.edl\n"
               "  kestrel align script.txt --clip interview.mov --range 1:30-2:45 --html scene.html");
    return [options] { return align(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "align",
                                         "Find where each line of a script begins in a clip", setUp});

} // namespace

} // namespace kestrel
