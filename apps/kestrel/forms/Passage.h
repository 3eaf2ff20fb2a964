#pragma once

#include "apps/kestrel/clips/TimedWords.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kestrel {

/// What one speaker says in one go: a segment of a transcript, ready for any output form. Times never run
/// backwards, neither within a passage nor from one to the next.
struct Passage {
    std::int32_t segment = 0;
    std::string text;
    std::string language;
    std::string speaker; ///< Name, else label.
    std::vector<TimedWord> words;
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
};

/// A clip's transcript in the order in which it is said.
/// @param speakerName Gives the name of a segment's speaker.
std::vector<Passage> passagesOf(const KsNNDB_STTClipEntry& entry,
                                const std::function<std::string(const KsNNDBEntrySeg&)>& speakerName);

/// Passages of one speaker after another, joined unless a pause of `longestPauseMs` parts them.
std::vector<Passage> turnsOf(const std::vector<Passage>& passages, std::int64_t longestPauseMs);

/// Joins a passage with the one after it.
void append(Passage& passage, const Passage& next);

/// Words as they are written, spaces where the script has them.
std::string joined(const std::vector<TimedWord>& words);

} // namespace kestrel
