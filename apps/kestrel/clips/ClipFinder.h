#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Home.h"

#include <string>

namespace kestrel {

/// Finds the clip that the user means by `text`: an identifier or the beginning of one (six characters at
/// least), the name of a clip, or a file. Clips of this home come first, then those that others put into the
/// store.
/// @param project Name or identifier; empty means any.
/// @throws Failure that says what there is instead, or which clips could be meant.
Clip findClip(KsNNDatabase& store, const Home& home, const std::string& text, const std::string& project);

} // namespace kestrel
