#include "apps/kestrel/clips/TextReport.h"

#include "apps/kestrel/clips/Transcript.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace kestrel {

namespace {

constexpr std::size_t kMostPlaces = 3;

/// Measured on 25 recordings in seven languages: played backwards, 23 of them have either no text or segments
/// below this; as they are, and by telephone, none that was recognised in the right language has one of three
/// seconds. The probability of the language separates them less well: a short piece of clear speech often has
/// a low one and is recognised in the right language all the same.
constexpr double kLeastConfidence = 50.0;
constexpr std::int64_t kShortestDoubtMs = 3000;

/// As people note a place in a recording: "00:03:10".
std::string wholeSeconds(std::int64_t ms) {
    const std::int64_t seconds = ms / 1000;
    return fmt::format("{:02}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string secondsOf(std::int64_t ms) {
    return fmt::format("{:.0f} s", static_cast<double>(ms) / 1000);
}

/// The first places of a list, and how many more there are.
template <typename Found, typename Describe>
std::string placesOf(const std::vector<Found>& all, Describe describe) {
    std::string text;
    for (std::size_t i = 0; i < std::min(all.size(), kMostPlaces); ++i)
        text += (text.empty() ? "" : ", ") + describe(all[i]);
    if (all.size() > kMostPlaces) text += fmt::format(", and {} more places", all.size() - kMostPlaces);
    return text;
}

std::vector<std::pair<int, int>> wordTimes(const KsNNDB_STTClipEntry& entry) {
    std::vector<std::pair<int, int>> words;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        for (std::size_t i = 0; i < segment.wordStartsMS.size(); ++i)
            words.emplace_back(segment.wordStartsMS[i], segment.wordEndsMS[i]);
    }
    std::sort(words.begin(), words.end());
    return words;
}

double sumOf(const std::vector<std::int32_t>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

/// The doubtful segments since the last trusted one.
struct Run {
    DoubtfulText text;
    double confidences = 0.0;
    std::size_t words = 0;

    void add(const KsNNDBEntrySeg& segment) {
        if (words == 0) text = {startOf(segment), 0, 0, segment.language};
        if (text.language.find(segment.language) == std::string::npos)
            text.language += ", " + segment.language;
        text.spoken += endOf(segment) - startOf(segment);
        confidences += sumOf(segment.wordConfidences);
        words += segment.wordConfidences.size();
        text.confidence = static_cast<int>(confidences / static_cast<double>(words));
    }
};

} // namespace

std::vector<DoubtfulText> doubtfulText(const KsNNDB_STTClipEntry& entry) {
    std::vector<DoubtfulText> found;
    Run run;
    const auto end = [&] {
        if (run.text.spoken >= kShortestDoubtMs) found.push_back(run.text);
        run = {};
    };
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        const auto& confidences = segment.wordConfidences;
        const bool isDoubtful =
            !confidences.empty() &&
            sumOf(confidences) / static_cast<double>(confidences.size()) < kLeastConfidence;
        if (isDoubtful)
            run.add(segment);
        else
            end();
    }
    end();
    return found;
}

std::vector<std::string> textWarnings(const KsNNDB_STTClipEntry& entry,
                                      const std::vector<SampleRange>& voiced) {
    std::vector<std::string> warnings;
    const auto lost = unrecognisedSpeech(voiced, wordTimes(entry));
    if (!lost.empty())
        warnings.push_back(placesOf(lost, [](const UnrecognisedSpeech& one) {
            return fmt::format("{} of speech gave no text, from {}", secondsOf(one.spoken),
                               wholeSeconds(one.begin));
        }));
    const auto doubtful = doubtfulText(entry);
    if (!doubtful.empty())
        warnings.push_back("doubtful text: " +
                           placesOf(doubtful,
                                    [](const DoubtfulText& one) {
                                        return fmt::format("{} from {} ({} % sure, taken for \"{}\")",
                                                           secondsOf(one.spoken), wholeSeconds(one.begin),
                                                           one.confidence, one.language);
                                    }) +
                           "; the speech there is unclear or in another language");
    return warnings;
}

} // namespace kestrel
