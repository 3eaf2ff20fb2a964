#pragma once

#include <cstddef>
#include <functional>

namespace kestrel::index {

/// Calls part(first, last) for pieces of [0, count) on all processors; returns when all are done. Pieces have
/// at least `smallest` elements, so that little work stays on the calling thread. Calls checkStillWanted
/// between rounds of pieces. part must not throw.
void inParallel(std::size_t count, std::size_t smallest,
                const std::function<void(std::size_t first, std::size_t last)>& part);

} // namespace kestrel::index
