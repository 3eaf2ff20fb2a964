#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// Adds the complete clip to a project, with its speakers. One that is in it already stays as it is.
/// @returns whether the clip was not in the project before.
/// @throws Failure when the clip is not complete or another program is writing it.
bool joinProject(KsNNDatabase& store, const Home& home, const Clip& clip, const KsNNProject& project);
/// The same for a clip whose lock the caller holds.
void joinLocked(KsNNDatabase& store, const std::string& clip, const KsNNProject& project);

/// Removes the clip from its project; its other projects keep it.
/// @throws Failure when it has no other project.
void leaveProject(KsNNDatabase& store, const Home& home, const Clip& clip);

/// Removes the clip from its project, and deletes it when that was the last.
/// @returns whether it was deleted.
/// @throws Failure when another program is writing it.
bool removeFromProject(KsNNDatabase& store, const Home& home, const Clip& clip);
/// Deletes the clip for all its projects.
void deleteEverywhere(KsNNDatabase& store, const Home& home, const Clip& clip);
/// Removes every clip, finished or not, and every speaker from a project; returns the number of clips.
std::size_t deleteProject(KsNNDatabase& store, const Home& home, const KsNNProject& project,
                          const Callbacks& callbacks);
/// Deletes transcripts that were begun and never completed, but those that are being written; returns their
/// number.
std::size_t deleteUnfinished(KsNNDatabase& store, const Home& home, const Callbacks& callbacks);

/// Releases every lock of the store but those of running kestrels of this home; returns the clips.
std::vector<std::string> unlockAll(KsNNDatabase& store, const Home& home, const Callbacks& callbacks);
/// Releases the clip's lock; returns whether there was one.
/// @throws Failure when a running kestrel of this home holds it.
bool unlock(KsNNDatabase& store, const Home& home, const std::string& clip);

} // namespace kestrel
