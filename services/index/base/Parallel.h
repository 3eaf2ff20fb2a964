#pragma once

#include <cstddef>
#include <functional>

namespace kestrel::index {

/// Calls part(first, last) for pieces of [0, count), on all processors at once; returns when all are done.
/// The pieces are at least `smallest` long, so that little work stays on the calling thread. Between rounds
/// of pieces it looks whether the request is still wanted. part must not throw.
void inParallel(std::size_t count, std::size_t smallest,
                const std::function<void(std::size_t first, std::size_t last)>& part);

} // namespace kestrel::index
