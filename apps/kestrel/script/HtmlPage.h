#pragma once

#include "apps/kestrel/script/Placement.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// A page, complete in itself, that shows a script and a transcript side by side. Scores are told by colour
/// and in figures; lines that were not found stand out. `offsetMs` is added to the transcript's times.
std::string alignmentPage(const std::string& scriptName, const std::vector<PlacedLine>& lines,
                          const KsNNDB_STTClipEntry& transcript, std::int32_t offsetMs);

} // namespace kestrel
