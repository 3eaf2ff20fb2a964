#pragma once

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
    std::int32_t wordIndex = 0; ///< Word of that segment.
    std::string word;           ///< As the transcript has it.

    bool isFound() const { return score > 0.0F; }
};

/// A page, complete in itself, that shows a script and a transcript side by side. Scores are told by colour
/// and in figures; lines that were not found stand out. `offsetMs` is added to the transcript's times.
std::string alignmentPage(const std::string& scriptName, const std::vector<PlacedLine>& lines,
                          const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs);

} // namespace kestrel
