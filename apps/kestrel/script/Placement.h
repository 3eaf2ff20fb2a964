#pragma once

#include "apps/kestrel/clips/TimedWords.h"
#include "apps/kestrel/script/Script.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// A script line with the place in the recording where it begins.
struct PlacedLine {
    ScriptLine script;
    float score = 0.0F;         ///< 0: not found.
    std::int32_t startMs = 0;   ///< In the clip.
    std::size_t segment = 0;    ///< Position in the transcript's segments.
    std::int32_t wordIndex = 0; ///< Word of that segment, as `timedWords` counts.
    TextSpan span{};            ///< The word where the line begins, in the segment's transcript.
    std::string word;           ///< As the transcript has it.

    bool isFound() const { return score > 0.0F; }
};

/// Keeps the lines that hold a word: the store aligns a script of spoken lines only.
void keepSpokenLines(std::vector<ScriptLine>& lines);

/// Finds where each line begins in a transcript. `offsetMs` is added to the transcript's times.
/// @throws Failure when the transcript cannot be aligned.
std::vector<PlacedLine> placeLines(KsNNDatabase& store, const std::vector<ScriptLine>& lines,
                                   const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs);

} // namespace kestrel
