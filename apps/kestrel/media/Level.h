#pragma once

#include <span>

namespace kestrel {

/// Level of the loudest hundredth of the audio, in decibels below full scale (0 is full scale). Clicks do not
/// count.
double loudLevel(std::span<const float> samples);

/// Decibels by which audio of this level is raised before anybody looks for voices in it: 0 unless it is so
/// quiet that the detector and the recogniser would miss them.
double raiseFor(double level);

/// Multiplies by so many decibels.
void raise(std::span<float> samples, double decibels);

} // namespace kestrel
