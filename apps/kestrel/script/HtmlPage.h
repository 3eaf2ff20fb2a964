#pragma once

#include "apps/kestrel/script/Placement.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kestrel {

/// What a page calls the times of a clip and the speakers of its segments.
struct PageLabels {
    std::function<std::string(std::int64_t milliseconds)> time;
    std::function<std::string(const KsNNDBEntrySeg& segment)> speaker;
};

/// A page, complete in itself, that shows a script and a transcript side by side. Scores are shown by colour
/// and in figures; lines that were not found stand out. `offsetMs` is added to the transcript's times.
std::string alignmentPage(const std::string& scriptName, const std::vector<PlacedLine>& lines,
                          const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs,
                          const PageLabels& labels);

} // namespace kestrel
