#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/script/HtmlPage.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"
#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <tuple>

namespace kestrel {

namespace {

bool isSpoken(const ScriptLine& line) {
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(line.text);
    KsNNDatabase::normalizeForSearch(text);
    return !text.isEmpty();
}

/// The script's lines, without those that hold no word: the store takes a script of spoken lines only.
std::vector<ScriptLine> spokenLines(const AlignOptions& options) {
    std::vector<ScriptLine> lines = readScript(readFile(options.script), options.format);
    std::erase_if(lines, [](const ScriptLine& line) { return !isSpoken(line); });
    if (lines.empty())
        throw Failure(fmt::format("{} holds no spoken line{}", options.script.string(),
                                  options.format == ScriptFormat::Plain ? "" : "; try --format plain"));
    return lines;
}

/// The part of the clip to align with; its times count from the start of the range.
KsNNDB_STTClipEntry readPart(KsNNDatabase& store, const CatalogueClip& clip, std::int32_t startMs,
                             std::int32_t endMs) {
    KsNNDB_STTClipEntry entry = readClip(store, clip);
    check(KsNNDatabase::sliceEntries(startMs, endMs, entry), store, "the range cannot be cut out");
    if (entry.segments.front().wordStartsMS.empty())
        throw Failure(fmt::format("nothing is said in {} from {} to {}", clip.name, timecode(startMs),
                                  timecode(endMs)));
    return entry;
}

PlacedLine place(const ScriptLine& line, const KsNNAlignmentItem& item, const KsNNDB_STTClipEntry& entry,
                 std::int32_t offsetMs) {
    PlacedLine placed{.script = line, .score = item.score, .word = ""};
    if (!placed.isFound()) return placed;
    placed.startMs = offsetMs + item.startMs;
    placed.segment = static_cast<std::size_t>(item.lineNumber);
    placed.wordIndex = item.wordIndex;
    const KsNNDBEntrySeg& segment = entry.segments.at(placed.segment);
    if (const auto span = wordSpan(segment.transcript, segment.language, item.wordIndex, 1))
        placed.word = segment.transcript.substr(span->begin, span->end - span->begin);
    return placed;
}

std::vector<PlacedLine> placeLines(KsNNDatabase& store, const std::vector<ScriptLine>& lines,
                                   const KsNNDB_STTClipEntry& entry, std::int32_t offsetMs) {
    KsNNTextLines script;
    for (const ScriptLine& line : lines)
        script.addLineUTF8(line.text.c_str(), line.number, entry.segments.front().language.c_str());
    KsNNAlignment alignment;
    check(store.Align(script, entry, alignment, false), store, "the script cannot be aligned");
    std::vector<PlacedLine> placed;
    for (std::size_t i = 0; i < lines.size(); ++i)
        placed.push_back(place(lines[i], alignment.at(i), entry, offsetMs));
    return placed;
}

void printText(const std::vector<PlacedLine>& lines) {
    std::string text;
    for (const PlacedLine& line : lines) {
        const std::string where =
            line.isFound() ? fmt::format("{}  {:.2f}  {}", timecode(line.startMs), line.score, line.word)
                           : "------------  0.00  not found";
        text += fmt::format("{:5}  {:<34}  {}\n", line.script.number, where, line.script.text);
    }
    printResult(text);
}

Poco::JSON::Object::Ptr toJson(const PlacedLine& line) {
    auto object = jsonObject();
    object->set("line", line.script.number);
    if (!line.script.character.empty()) object->set("character", line.script.character);
    object->set("text", line.script.text);
    object->set("found", line.isFound());
    object->set("score", roundedScore(line.score));
    if (line.isFound()) {
        object->set("timecode", timecode(line.startMs));
        object->set("startMS", line.startMs);
        object->set("segment", line.segment);
        object->set("wordIndex", line.wordIndex);
        object->set("word", line.word);
    }
    return object;
}

void printJson(const AlignOptions& options, const CatalogueClip& clip, const KsNNDB_STTClipEntry& entry,
               const std::vector<PlacedLine>& lines) {
    auto document = jsonObject();
    document->set("script", options.script.string());
    document->set("clip", clip.id);
    document->set("clipName", entry.clipName);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const PlacedLine& line : lines)
        list->add(toJson(line));
    document->set("lines", list);
    printResult(document);
}

void writePage(const std::filesystem::path& file, const std::string& page) {
    std::ofstream out(file, std::ios::binary);
    out << page << std::flush;
    if (!out) throw Failure(fmt::format("cannot write {}: {}", file.string(), std::strerror(errno)));
    tell(fmt::format("the page is {}", file.string()));
}

} // namespace

int align(const AlignOptions& options) {
    std::int32_t startMs = 0;
    std::int32_t endMs = 0;
    if (!options.range.empty()) std::tie(startMs, endMs) = parseRange(options.range);
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::vector<ScriptLine> script = spokenLines(options);
    const CatalogueClip clip = findClip(home, options.clip, options.project);
    const KsNNDB_STTClipEntry entry =
        options.range.empty() ? readClip(store, clip) : readPart(store, clip, startMs, endMs);
    const std::vector<PlacedLine> lines = placeLines(store, script, entry, startMs);

    if (!options.html.empty())
        writePage(options.html, alignmentPage(options.script.filename().string(), lines, entry, startMs));
    if (options.json)
        printJson(options, clip, entry, lines);
    else
        printText(lines);
    const auto found =
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.isFound(); });
    tell(fmt::format("{} of {} lines found", found, lines.size()));
    return ExitFine;
}

} // namespace kestrel
