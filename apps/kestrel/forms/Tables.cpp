#include "apps/kestrel/forms/Forms.h"

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

namespace {

using Row = std::vector<std::string>;

bool hasScores(const Selection& selection) {
    return std::any_of(selection.items.begin(), selection.items.end(),
                       [](const FormItem& item) { return item.score.has_value(); });
}

std::vector<Row> rows(const Selection& selection) {
    const bool scored = hasScores(selection);
    std::vector<Row> table{
        {"clip", "segment", "start_ms", "end_ms", "timecode", "speaker", "language", "text"}};
    if (scored) table.front().insert(table.front().end(), {"match", "score"});
    for (const FormItem& item : selection.items) {
        const FormClip& clip = selection.clips.at(item.clip);
        const Passage& passage = item.passage;
        const std::string label =
            clip.clock
                ? timecodeOf(clip.clock->startFrame + clip.clock->rate.frameAt(item.markMs), clip.clock->rate)
                : "";
        table.push_back({clip.name, std::to_string(passage.segment), std::to_string(item.markMs),
                         std::to_string(item.markEndMs), label, passage.speaker, passage.language,
                         passage.text});
        if (scored) {
            table.back().push_back(item.label);
            table.back().push_back(item.score ? fmt::format("{:.4f}", *item.score) : "");
        }
    }
    return table;
}

/// RFC 4180.
std::string csvCell(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"') quoted += '"';
        quoted += character;
    }
    return quoted + '"';
}

/// Tab-separated values (IANA text/tab-separated-values) know no quoting.
std::string tsvCell(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char character) { return character == '\t' || character == '\n' || character == '\r'; }, ' ');
    return text;
}

template <typename Cell>
std::string table(const Selection& selection, const char* separator, const char* newLine, Cell cell) {
    std::string text;
    for (const Row& row : rows(selection)) {
        for (std::size_t i = 0; i < row.size(); ++i)
            text += (i == 0 ? "" : separator) + cell(row[i]);
        text += newLine;
    }
    return text;
}

} // namespace

Written writeCsv(const Selection& selection, const FormOptions&) {
    return {table(selection, ",", "\r\n", csvCell), ""};
}

Written writeTsv(const Selection& selection, const FormOptions&) {
    return {table(selection, "\t", "\n", tsvCell), ""};
}

} // namespace kestrel
