#include "apps/kestrel/forms/Forms.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

namespace {

/// The passages in the time of the string-out.
std::vector<Passage> stringOutPassages(const Selection& selection, std::int64_t handleMs) {
    std::vector<Passage> passages;
    std::int64_t recordMs = 0;
    for (const Cut& cut : cutsOf(selection, handleMs)) {
        const FormItem& item = selection.items[cut.item];
        const FrameRate& rate = clockOf(selection, item).rate;
        const std::int64_t beginMs = rate.millisecondsAt(cut.begin);
        const std::int64_t shift = recordMs - beginMs;
        Passage passage = item.passage;
        passage.startMs += shift;
        passage.endMs += shift;
        for (TimedWord& word : passage.words) {
            word.startMs += shift;
            word.endMs += shift;
        }
        recordMs += rate.millisecondsAt(cut.end) - beginMs;
        passages.push_back(std::move(passage));
    }
    return passages;
}

std::vector<Passage> clipPassages(const Selection& selection) {
    std::vector<Passage> passages;
    for (const FormItem& item : selection.items) {
        if (item.clip != selection.items.front().clip)
            throw UsageError(fmt::format(
                "subtitles run in the time of one clip, and these are of \"{}\" and \"{}\" at "
                "least; ask for a string-out, or for one clip",
                selection.clips[selection.items.front().clip].name, selection.clips[item.clip].name));
        // Two hits in one segment are one subtitle.
        const bool isKnown = std::any_of(passages.begin(), passages.end(), [&](const Passage& passage) {
            return passage.segment == item.passage.segment && passage.startMs == item.passage.startMs;
        });
        if (!isKnown) passages.push_back(item.passage);
    }
    std::stable_sort(passages.begin(), passages.end(),
                     [](const Passage& left, const Passage& right) { return left.startMs < right.startMs; });
    return passages;
}

} // namespace

const std::map<std::string, Form>& forms() {
    static const std::map<std::string, Form> all{
        {"srt", {writeSrt, false, "SubRip subtitles"}},
        {"vtt", {writeVtt, false, "WebVTT subtitles"}},
        {"ttml", {writeTtml, false, "TTML subtitles (IMSC 1.1 text profile)"}},
        {"json", {writeJson, false, "segments and words with their times"}},
        {"tsv", {writeTsv, false, "a table, columns parted by tabs"}},
        {"csv", {writeCsv, false, "a table for spreadsheets"}},
        {"rttm", {writeRttm, false, "who speaks when"}},
        {"txt", {writeTxt, false, "text to read"}},
        {"otio", {writeOtio, true, "OpenTimelineIO"}},
        {"edl", {writeEdl, true, "CMX 3600 edit decision list"}},
        {"fcpxml", {writeFcpxml, true, "Final Cut Pro X XML"}},
    };
    return all;
}

Subtitles subtitlesOf(const Selection& selection, const FormOptions& options, SpeakerNames names) {
    const std::vector<Passage> passages = options.layout == Layout::StringOut
                                              ? stringOutPassages(selection, options.handleMs)
                                              : clipPassages(selection);
    return subtitlesOf(passages, options.subtitles, names);
}

std::string readingWarning(const Subtitles& subtitles, const SubtitleRules& rules) {
    if (subtitles.tooFast == 0) return "";
    return fmt::format(
        "{} of {} subtitles are faster than {:g} characters a second (the fastest {:.0f}): more "
        "is said there than can be read",
        subtitles.tooFast, subtitles.cues.size(), rules.readingSpeed, subtitles.fastest);
}

} // namespace kestrel
