#pragma once

/// @file
/// Cutting a transcript to a span of time. Internal.

#include "kestrelml/core/KsNNBase.h"

namespace kestrelml::detail {

/// Keeps the words that lie mostly inside [`startMS`, `endMS`], with times relative to `startMS`.
/// Throws what the word break rules throw.
void slice(int startMS, int endMS, KsNNDB_STTClipEntry& entry);

} // namespace kestrelml::detail
