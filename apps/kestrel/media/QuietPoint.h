#pragma once

#include <cstddef>
#include <span>

namespace kestrel {

/// Position of the quietest fifth of a second (its middle): where a recording is best cut in two.
std::size_t quietestPoint(std::span<const float> samples);

} // namespace kestrel
