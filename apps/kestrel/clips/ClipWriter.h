#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>

namespace kestrel {

/// Holds a clip's lock in the store; gives it back when destroyed.
///
/// A lock in the store has no owner and outlives a crash. So a file in our home says which locks are ours:
/// when it says "held" and no process of ours holds the file, then a kestrel crashed, and its lock is taken
/// over.
class ClipLock {
public:
    /// @param takeOver Take the lock even when another program seems to hold it.
    /// @throws Failure when another program writes the clip.
    ClipLock(KsNNDatabase& store, const Home& home, const std::string& mediaGuid, bool takeOver);
    ClipLock(const ClipLock&) = delete;
    ClipLock& operator=(const ClipLock&) = delete;
    ~ClipLock();

private:
    void lock(bool takeOver);

    KsNNDatabase& mStore;
    std::string mMediaGuid;
    FileLock mOurs;
};

enum class ClipState { Absent, Begun, Complete };

/// What the store holds of the clip for this project.
/// @throws Failure when the clip is another project's.
ClipState clipState(KsNNDatabase& store, const std::string& mediaGuid, const std::string& projectGuid);

/// Writes the clip, whose lock is held, and marks it complete. Of a clip that was begun before, the segments
/// that are stored stay, and the transcript goes on behind them.
/// @throws Failure when the store refuses something; what was stored before stays.
void writeClip(KsNNDatabase& store, const Home& home, KsNNDB_STTClipEntry entry, const std::string& mediaGuid,
               const std::string& projectGuid, const Callbacks& callbacks);

/// Drops the beginning of `entry`, up to where `stored` ends, puts `stored` in its place and renumbers what
/// follows.
void continueBehind(const KsNNDB_STTClipEntry& stored, KsNNDB_STTClipEntry& entry);

} // namespace kestrel
