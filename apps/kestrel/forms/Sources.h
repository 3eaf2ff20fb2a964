#pragma once

#include "apps/kestrel/forms/Selection.h"
#include "apps/kestrel/script/Placement.h"
#include "kestrelml/store/KsNNPhraseSearch.h"

#include <vector>

namespace kestrel {

/// A transcript: its segments, or for editing programs the turns of its speakers.
Selection transcriptSelection(FormClip clip, const std::vector<Passage>& passages, bool asTurns);

/// Adds a hit in the clip whose passages these are; a hit that none of them holds is left out.
void addHit(Selection& selection, std::size_t clip, const std::vector<Passage>& passages,
            const KsNNPhraseHit& hit);

/// The lines of a script that were found, each up to the end of what is said in one go, or to the next line.
Selection scriptSelection(FormClip clip, const std::vector<Passage>& passages,
                          const std::vector<PlacedLine>& lines);

} // namespace kestrel
