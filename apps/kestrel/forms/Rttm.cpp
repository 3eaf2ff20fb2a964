#include "apps/kestrel/forms/Forms.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace kestrel {

namespace {

/// Fields of an RTTM line are parted by white space and hold none.
std::string field(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char character) { return std::isspace(character) != 0; }, '_');
    return text.empty() ? "<NA>" : text;
}

} // namespace

/// NIST Rich Transcription Time Marked, one line for each stretch of one speaker.
Written writeRttm(const Selection& selection, const FormOptions&) {
    std::string text;
    for (const FormItem& item : selection.items) {
        const Passage& passage = item.passage;
        text += fmt::format(
            "SPEAKER {} 1 {:.3f} {:.3f} <NA> <NA> {} <NA> <NA>\n", field(selection.clips.at(item.clip).name),
            static_cast<double>(passage.startMs) / 1000.0,
            static_cast<double>(passage.endMs - passage.startMs) / 1000.0, field(passage.speaker));
    }
    return {std::move(text), ""};
}

} // namespace kestrel
