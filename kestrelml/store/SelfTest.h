#pragma once

/// @file
/// Sections of the store's self-test that lie above the store. Internal.

class KsNNDatabase;

namespace kestrelml::detail {

/// Whether a small script is placed where it belongs. Defined beside the alignment, as `KsNNDatabase::Align`
/// is.
bool alignsAsExpected(KsNNDatabase& store);

} // namespace kestrelml::detail
