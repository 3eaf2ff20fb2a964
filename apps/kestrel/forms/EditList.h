#pragma once

#include "apps/kestrel/forms/Forms.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// A marker, in frames of the clip it stands on.
struct EditMarker {
    std::int64_t frame = 0;
    std::int64_t length = 1;
    std::string name;
    std::string note;
};

/// A stretch of a clip in a sequence, in frames of the clip; `end` is exclusive.
struct EditCut {
    std::size_t clip = 0; ///< Position in `Selection::clips`, all of which have a clock.
    std::int64_t begin = 0;
    std::int64_t end = 0;
    std::vector<EditMarker> markers; ///< Inside the stretch.
};

/// A sequence of cuts on one track, without gaps.
struct EditList {
    FrameRate rate;               ///< Of the sequence: that of its first clip.
    std::int64_t recordStart = 0; ///< Frame of the sequence's first label.
    std::vector<EditCut> cuts;

    /// Length of a cut in frames of the sequence, which may differ from the clip's in rate.
    std::int64_t recordLength(const Selection& selection, const EditCut& cut) const;
};

/// Lays a selection out for an editing program.
/// @throws Failure when a clip has no clock, or nothing is selected.
EditList editListOf(const Selection& selection, const FormOptions& options);

/// The file's address, as in file:///media/a%20b.mov; empty when nobody knows where it is.
std::string fileUrl(const ClipClock& clock);

} // namespace kestrel
