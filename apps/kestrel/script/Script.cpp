#include "apps/kestrel/script/Script.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <sstream>

namespace kestrel {

namespace {

using Lines = std::vector<std::string>;

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r\f\v";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// Blanks out what stands between two marks, keeping line ends, so that line numbers stay true.
void blankOut(std::string& text, const std::string& open, const std::string& close) {
    for (std::size_t begin = text.find(open); begin != std::string::npos; begin = text.find(open, begin)) {
        const std::size_t end = text.find(close, begin + open.size());
        if (end == std::string::npos) return;
        for (std::size_t i = begin; i < end + close.size(); ++i) {
            if (text[i] != '\n') text[i] = ' ';
        }
    }
}

Lines split(const std::string& text) {
    std::istringstream in(text);
    Lines lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(trimmed(line));
    return lines;
}

std::string withoutEmphasis(std::string text) {
    std::erase(text, '*');
    return trimmed(text);
}

bool isSceneHeading(const std::string& line) {
    static const std::regex heading(R"((?:\d+[A-Z]?\.?\s+)?(?:INT|EXT|EST|INT\.?/EXT|I/E)[. ].*|\.[^.].*)",
                                    std::regex::icase);
    return std::regex_match(line, heading);
}

/// Stands between pages that became text.
bool isPageNumber(const std::string& line) {
    static const std::regex number(R"(\d{1,4}\.?)");
    return std::regex_match(line, number);
}

/// "ANNA", "ANNA (V.O.)", "ÉLODIE ^", "@McAvoy". Letters beyond ASCII may stand in a name.
bool isCharacterName(const std::string& line) {
    constexpr std::size_t kLongest = 40;
    if (line.starts_with("@")) return true;
    const std::string name = line.substr(0, line.find('('));
    const auto lower = [](unsigned char c) { return std::islower(c) != 0; };
    const auto upper = [](unsigned char c) { return std::isupper(c) != 0 || c >= 0x80; };
    return line.size() <= kLongest && std::none_of(name.begin(), name.end(), lower) &&
           std::any_of(name.begin(), name.end(), upper) && name.find_first_of(":.!?;>") == std::string::npos;
}

std::string characterOf(const std::string& line) {
    std::string name = line.substr(line.starts_with("@") ? 1 : 0);
    name = name.substr(0, name.find('('));
    std::erase(name, '^');
    return trimmed(name);
}

/// Whether the line names the speaker of the lines under it. In text taken from pages the scene's number or
/// "(CONTINUED)" may follow a name, so what follows need only be there.
bool isCue(const Lines& lines, std::size_t i) {
    const bool free = i == 0 || lines[i - 1].empty();
    const bool followed = i + 1 < lines.size() && !lines[i + 1].empty();
    return free && followed && isCharacterName(lines[i]) && !isSceneHeading(lines[i]);
}

bool looksLikeScreenplay(const Lines& lines) {
    const auto first =
        std::find_if(lines.begin(), lines.end(), [](const std::string& line) { return !line.empty(); });
    if (first != lines.end() && isSceneHeading(*first)) return true;
    int cues = 0;
    for (std::size_t i = 0; i < lines.size(); ++i)
        cues += isCue(lines, i) ? 1 : 0;
    return cues >= 2;
}

/// End of the title page ("Title: …" and the like, up to the first empty line); 0 when there is none.
std::size_t endOfTitlePage(const Lines& lines) {
    static const std::regex key(R"((?:title|credit|authors?|source|draft date|contact|copyright|notes):.*)",
                                std::regex::icase);
    if (lines.empty() || !std::regex_match(lines.front(), key)) return 0;
    return static_cast<std::size_t>(std::find(lines.begin(), lines.end(), "") - lines.begin());
}

std::vector<ScriptLine> readScreenplay(const Lines& lines) {
    std::vector<ScriptLine> spoken;
    std::string character;
    bool inParenthesis = false; // one may go on over several lines
    for (std::size_t i = endOfTitlePage(lines); i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (line.empty()) {
            character.clear();
            inParenthesis = false;
        } else if (character.empty()) {
            if (isCue(lines, i)) character = characterOf(line);
        } else if (inParenthesis || line.starts_with("(")) {
            inParenthesis = !line.ends_with(")");
        } else if (!isPageNumber(line)) {
            const std::string text = withoutEmphasis(line.starts_with("~") ? line.substr(1) : line);
            spoken.push_back({static_cast<int>(i) + 1, character, text});
        }
    }
    return spoken;
}

std::vector<ScriptLine> readPlain(const Lines& lines) {
    static const std::regex named(R"(([A-Z\x80-\xff][A-Z0-9\x80-\xff .'-]{0,30}):\s+(.+))");
    std::vector<ScriptLine> spoken;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::smatch parts;
        if (std::regex_match(lines[i], parts, named))
            spoken.push_back({static_cast<int>(i) + 1, parts[1], parts[2]});
        else if (!lines[i].empty())
            spoken.push_back({static_cast<int>(i) + 1, "", lines[i]});
    }
    return spoken;
}

} // namespace

std::vector<ScriptLine> readScript(const std::string& text, ScriptFormat format) {
    const Lines asWritten = split(text);
    if (format == ScriptFormat::Plain || (format == ScriptFormat::Auto && !looksLikeScreenplay(asWritten)))
        return readPlain(asWritten);
    std::string spoken = text;
    blankOut(spoken, "/*", "*/");
    blankOut(spoken, "[[", "]]");
    return readScreenplay(split(spoken));
}

} // namespace kestrel
