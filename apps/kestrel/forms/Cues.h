#pragma once

#include "apps/kestrel/forms/Passage.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// What subtitles have to keep to. The defaults are those that broadcasters and streaming services ask for.
struct SubtitleRules {
    int lineLength = 42;             ///< Columns of a line; full-width characters take two.
    int lines = 2;                   ///< Lines shown at once.
    double readingSpeed = 20.0;      ///< Columns a second.
    std::int64_t shortestGapMs = 80; ///< Between two subtitles: two frames of 25.
    std::int64_t shortestMs = 833;   ///< Five sixths of a second.
    std::int64_t longestMs = 7000;
    bool speakers = false; ///< Say who speaks, where the speaker changes.
};

/// One subtitle.
struct Cue {
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
    std::vector<std::string> lines; ///< None is empty.
    std::string speaker;
};

/// Where a form puts the names of the speakers, when they are asked for.
enum class SpeakerNames {
    InText, ///< "Anna: ", where the speaker changes.
    Apart,  ///< `Cue::speaker` is enough, the form has a place for it.
};

/// Subtitles in the order in which they are shown. They never overlap, and at least `shortestGapMs` lies
/// between two.
struct Subtitles {
    std::vector<Cue> cues;
    std::size_t tooFast = 0; ///< Cues that stay above the reading speed: more is said than can be read.
    double fastest = 0.0;    ///< Their highest speed, in columns a second.
};

/// Breaks passages into subtitles, at the ends of sentences and clauses and at pauses where there is a
/// choice. Each is shown from its first word to its last and for as long as reading takes; for that it may
/// stay into the following pause, begin up to half a second early, and hold the next one back by up to half a
/// second.
Subtitles subtitlesOf(const std::vector<Passage>& passages, const SubtitleRules& rules, SpeakerNames names);

/// Columns that a text takes: two for a full-width character, none for a combining one.
int columnsOf(const std::string& text);

} // namespace kestrel
