#pragma once

#include "index/Index.h"

namespace kestrel {

/// Computes the "aggs" object of a request ("terms" and "nested", and these inside each other) over the
/// documents.
Json aggregate(const IndexView& view, const Json& aggregations, const Bitmap& documents);

} // namespace kestrel
