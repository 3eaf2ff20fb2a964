#pragma once

#include "engine/Index.h"

namespace kestrel::index {

/// Computes the "aggs" object of a request ("terms" and "nested", and these inside each other) over the
/// documents.
Json aggregate(const IndexView& view, const Json& aggregations, const Bitmap& documents);

} // namespace kestrel::index
