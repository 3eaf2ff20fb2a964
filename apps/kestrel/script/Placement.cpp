#include "apps/kestrel/script/Placement.h"

#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/services/Store.h"
#include "kestrelml/align/KsNNAlignment.h"
#include "kestrelml/align/KsNNTextLines.h"

#include <algorithm>

namespace kestrel {

namespace {

bool isSpoken(const ScriptLine& line) {
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(line.text);
    KsNNDatabase::normalizeForSearch(text);
    return !text.isEmpty();
}

PlacedLine place(const ScriptLine& line, const KsNNAlignmentItem& item, const KsNNDB_STTClipEntry& entry,
                 std::int32_t offsetMs) {
    PlacedLine placed{.script = line, .score = item.score, .word = ""};
    if (!placed.isFound()) return placed;
    placed.segment = static_cast<std::size_t>(item.lineNumber);
    placed.startMs = offsetMs + item.startMs;
    const KsNNDBEntrySeg& segment = entry.segments.at(placed.segment);
    const auto span = spanOfNormalWord(segment.transcript, segment.language, item.wordIndex);
    if (!span) return placed;
    placed.span = *span;
    placed.word = segment.transcript.substr(span->begin, span->end - span->begin);
    // The store counts the words of the normal form, and takes the time of the stored word of that number.
    const std::vector<TimedWord> words = timedWords(segment);
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const TimedWord& one) { return one.span.end > span->begin; });
    if (word == words.end()) return placed;
    placed.wordIndex = static_cast<std::int32_t>(word - words.begin());
    placed.startMs = offsetMs + static_cast<std::int32_t>(word->startMs);
    return placed;
}

} // namespace

void keepSpokenLines(std::vector<ScriptLine>& lines) {
    std::erase_if(lines, [](const ScriptLine& line) { return !isSpoken(line); });
}

std::vector<PlacedLine> placeLines(KsNNDatabase& store, const std::vector<ScriptLine>& lines,
                                   const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs) {
    KsNNTextLines script;
    for (const ScriptLine& line : lines)
        script.addLineUTF8(line.text.c_str(), line.number, transcript.segments.front().language.c_str());
    KsNNAlignment alignment;
    check(store.Align(script, transcript, alignment, false), store, "the script cannot be aligned");
    std::vector<PlacedLine> placed;
    for (std::size_t i = 0; i < lines.size(); ++i)
        placed.push_back(place(lines[i], alignment.at(i), transcript, offsetMs));
    return placed;
}

} // namespace kestrel
