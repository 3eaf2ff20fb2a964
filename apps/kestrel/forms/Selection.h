#pragma once

#include "apps/kestrel/forms/Passage.h"
#include "apps/kestrel/media/ClipClock.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A clip of which something is written out.
struct FormClip {
    std::string id;
    std::string name;
    std::string project;
    std::optional<ClipClock> clock; ///< Absent when its media could not be read.
};

/// One thing to write out: a segment, a speaker's turn, a hit of a search, a line of a script.
struct FormItem {
    std::size_t clip = 0; ///< Position in `Selection::clips`.
    Passage passage;
    std::int64_t markMs = 0; ///< Where a marker goes, and how long it is; within the passage or equal to it.
    std::int64_t markEndMs = 0;
    std::string label; ///< What a marker is called.
    std::string note;  ///< What it says besides.
    std::optional<float> score;
};

/// What a form is made of.
struct Selection {
    std::string title;
    std::vector<FormClip> clips;
    std::vector<FormItem> items; ///< In the order in which they are to appear.
};

/// A whole passage as an item.
FormItem itemOf(std::size_t clip, Passage passage);

/// A part of a clip in a string-out, in frames of the clip; `end` is exclusive.
struct Cut {
    std::size_t item = 0;
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

/// The parts that hold the items, with `handleMs` more on either side as far as the clip goes.
std::vector<Cut> cutsOf(const Selection& selection, std::int64_t handleMs);

/// The clock of an item's clip, or the default one.
const ClipClock& clockOf(const Selection& selection, const FormItem& item);

} // namespace kestrel
