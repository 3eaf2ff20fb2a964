#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// Puts a new transcript, which is whole, in the place of what the store holds of the clip, for all of its
/// projects. The clip's lock is held.
///
/// The store cannot exchange one transcript for another in one step. So the new one first goes to a file of
/// the home; only then is the old one deleted and the new one written; the file is removed last. If the
/// process ends before that, `completeReplacements` finishes the work.
/// @throws Failure when the store refuses something. The store then holds the old transcript, or the home
/// keeps the new one.
void replaceTranscript(KsNNDatabase& store, const Home& home, const std::string& clip,
                       const KsNNDB_STTClipEntry& entry, const std::vector<KsNNProject>& projects);

/// Completes interrupted replacements, except those on which another kestrel is working. Failures are
/// reported as notices.
void completeReplacements(KsNNDatabase& store, const Home& home, const Callbacks& callbacks);

} // namespace kestrel
