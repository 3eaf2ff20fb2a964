#include "apps/kestrel/script/HtmlPage.h"

#include "apps/kestrel/clips/Transcript.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace kestrel {

namespace {

const char* const kStyle = R"css(
:root { color-scheme: light dark; --ink: #1c1f24; --paper: #fbfaf7; --soft: #5b626d; --line: #d9d6ce;
  --lost: #b3261e; --lost-paper: #fdecea; --mark: #fff1b8; --shade: 92%; --edge: 38%; }
@media (prefers-color-scheme: dark) { :root { --ink: #e9e7e1; --paper: #16181c; --soft: #a3abb8; --line: #343942;
  --lost: #ff8a80; --lost-paper: #3a1f1d; --mark: #5a4a12; --shade: 18%; --edge: 60%; } }
* { box-sizing: border-box; }
body { margin: 0; font: 16px/1.5 system-ui, sans-serif; color: var(--ink); background: var(--paper); }
header { padding: 1.2rem 1.5rem .8rem; border-bottom: 1px solid var(--line); }
h1 { font-size: 1.25rem; margin: 0; } h2 { font-size: 1rem; margin: 0 0 .6rem; }
header p { margin: .2rem 0 0; color: var(--soft); }
main { display: grid; grid-template-columns: 1fr 1fr; height: calc(100vh - 5.5rem); }
section { overflow-y: auto; padding: 1rem 1.5rem 40vh; scroll-behavior: smooth; }
section + section { border-left: 1px solid var(--line); }
ol { list-style: none; margin: 0; padding: 0; }
li { margin: 0 0 .45rem; padding: .4rem .7rem; border-radius: .35rem; border-left: .35rem solid transparent; }
a { color: inherit; text-decoration: none; } a:hover, a:focus-visible { text-decoration: underline; }
time, .score, .number { font-variant-numeric: tabular-nums; font-size: .82rem; color: var(--soft); }
.who { font-weight: 600; font-size: .82rem; letter-spacing: .03em; }
.found { background: hsl(var(--hue) 60% var(--shade)); border-left-color: hsl(var(--hue) 65% var(--edge)); }
.lost { background: var(--lost-paper); border: 2px dashed var(--lost); }
.lost strong { color: var(--lost); font-size: .82rem; }
.start { font-weight: 700; text-decoration: underline hsl(var(--hue) 65% var(--edge)) .18em; }
li:target, .start:target { background: var(--mark); outline: 2px solid var(--soft); }
@media (max-width: 45rem) { main { display: block; height: auto; } section + section { border-left: 0; } }
@media print { main { height: auto; } section { overflow: visible; } }
)css";

std::string escaped(const std::string& text) {
    std::string html;
    for (const char c : text) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

/// Red at half, the lowest score of a match, over yellow to green.
int hue(float score) {
    return static_cast<int>(std::lround(std::clamp((score - 0.5F) * 2.0F, 0.0F, 1.0F) * 130.0F));
}

std::string scriptItem(const PlacedLine& line, std::size_t index, const PageLabels& labels) {
    const std::string who = line.script.character.empty() ? ""
                                                          : fmt::format("<span class=\"who\">{}</span> ",
                                                                        escaped(line.script.character));
    const std::string text = escaped(line.script.text);
    if (!line.isFound())
        return fmt::format("<li class=\"lost\" id=\"line-{}\"><span class=\"number\">{}</span> {}{}<br>"
                           "<strong>Not found in the recording</strong></li>\n",
                           index, line.script.number, who, text);
    return fmt::format(
        "<li class=\"found\" style=\"--hue:{}\" id=\"line-{}\"><span class=\"number\">{}</span> {}"
        "<a href=\"#word-{}-{}\">{}</a><br><time>{}</time> <span class=\"score\">score {:.2f}, from "
        "\u201c{}\u201d</span></li>\n",
        hue(line.score), index, line.script.number, who, line.segment, line.wordIndex, text,
        labels.time(line.startMs), line.score, escaped(line.word));
}

/// The words of one segment at which lines begin, by their place in the segment's text.
class Starts {
public:
    void add(const PlacedLine& line, std::size_t index) {
        mStarts[line.span.begin].push_back({&line, index});
    }

    std::string markUp(const std::string& text) const {
        std::string html;
        std::size_t done = 0;
        for (const auto& [begin, lines] : mStarts) {
            const Start& first = lines.front();
            const std::size_t end = first.line->span.end;
            html += escaped(text.substr(done, begin - done));
            html += fmt::format("<a class=\"start\" style=\"--hue:{}\" id=\"word-{}-{}\" href=\"#line-{}\" "
                                "title=\"script line {}\">{}</a>",
                                hue(first.line->score), first.line->segment, first.line->wordIndex,
                                first.index, numbers(lines), escaped(text.substr(begin, end - begin)));
            done = end;
        }
        return html + escaped(text.substr(done));
    }

private:
    struct Start {
        const PlacedLine* line;
        std::size_t index;
    };

    static std::string numbers(const std::vector<Start>& lines) {
        std::string text;
        for (const Start& start : lines)
            text += fmt::format("{}{}", text.empty() ? "" : ", ", start.line->script.number);
        return text;
    }

    std::map<std::size_t, std::vector<Start>> mStarts;
};

std::string transcriptItems(const std::vector<PlacedLine>& lines, const KsNNDB_STTClipEntry& transcript,
                            std::int32_t offsetMs, const PageLabels& labels) {
    std::vector<Starts> starts(transcript.segments.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].isFound() && lines[i].segment < starts.size()) starts[lines[i].segment].add(lines[i], i);
    }
    std::string html;
    for (std::size_t i = 0; i < transcript.segments.size(); ++i) {
        const KsNNDBEntrySeg& segment = transcript.segments[i];
        html += fmt::format("<li><time>{}</time> <span class=\"who\">{}</span><br>{}</li>\n",
                            labels.time(offsetMs + startOf(segment)), escaped(labels.speaker(segment)),
                            starts[i].markUp(segment.transcript));
    }
    return html;
}

} // namespace

std::string alignmentPage(const std::string& scriptName, const std::vector<PlacedLine>& lines,
                          const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs,
                          const PageLabels& labels) {
    std::string script;
    for (std::size_t i = 0; i < lines.size(); ++i)
        script += scriptItem(lines[i], i, labels);
    const auto found =
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.isFound(); });
    const std::string language = transcript.segments.empty() ? "" : transcript.segments.front().language;
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"{0}\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>{1} and {2}</title>\n<style>{3}</style>\n</head>\n<body>\n"
        "<header><h1>{1} and {2}</h1>\n<p lang=\"en\">{4} of {5} script lines found. Green: a sure "
        "match, red: a weak one, dashed: not found. Choose a line to see its place.</p></header>\n"
        "<main>\n<section tabindex=\"0\" aria-labelledby=\"script\"><h2 id=\"script\" "
        "lang=\"en\">Script</h2>\n<ol>\n{6}</ol></section>\n"
        "<section tabindex=\"0\" aria-labelledby=\"transcript\"><h2 id=\"transcript\" "
        "lang=\"en\">Transcript</h2>\n<ol>\n{7}</ol></section>\n</main>\n</body>\n</html>\n",
        escaped(language), escaped(scriptName), escaped(transcript.clipName), kStyle, found, lines.size(),
        script, transcriptItems(lines, transcript, offsetMs, labels));
}

} // namespace kestrel
