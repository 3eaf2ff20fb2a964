#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "kestrelml/store/KsNNDatabase.h"

namespace kestrel {

/// Number of documents that the store still has in the index of the first version; 0 when there is none.
/// @throws Failure when the store cannot be asked.
int oldDocuments(KsNNDatabase& store);

/// Copies them into the index of the current version and empties the old one; goes on with a migration that
/// was interrupted.
/// @throws Failure when the current index holds other clips: then nothing has changed. Cancelled; then the
/// old index is whole.
void migrate(KsNNDatabase& store, const Callbacks& callbacks);

} // namespace kestrel
