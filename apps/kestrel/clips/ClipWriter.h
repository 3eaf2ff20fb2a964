#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// Another program is writing the clip.
class ClipInUse : public Failure {
public:
    using Failure::Failure;
};

/// Holds a clip's lock in the store; gives it back when destroyed.
///
/// A lock in the store has no owner and survives a crash. So a file in the home records which locks kestrel
/// holds: when it says "held" and no process has it locked, a kestrel has crashed, and its lock is taken
/// over.
class ClipLock {
public:
    /// @param takeOver Take the lock even when another program seems to hold it.
    /// @throws ClipInUse when another program is writing the clip.
    ClipLock(KsNNDatabase& store, const Home& home, const std::string& mediaGuid, bool takeOver);
    ClipLock(const ClipLock&) = delete;
    ClipLock& operator=(const ClipLock&) = delete;
    ~ClipLock();

    /// Whether a running kestrel of this home holds the clip's lock.
    static bool isHeldHere(const Home& home, const std::string& mediaGuid);

private:
    void lock(bool takeOver);

    KsNNDatabase& mStore;
    std::string mMediaGuid;
    FileLock mOurs;
};

enum class ClipState {
    Absent,
    Begun,
    Complete,
    Elsewhere ///< Complete, in other projects only.
};

/// What the store holds of the clip for this project.
/// @throws Failure when another project has begun the clip.
ClipState clipState(KsNNDatabase& store, const std::string& mediaGuid, const std::string& projectGuid);

/// The segments of the clip that the store has for this project, in order.
std::vector<KsNNDBEntrySeg> storedSegments(KsNNDatabase& store, const std::string& mediaGuid,
                                           const std::string& projectGuid);
/// Writes the segments of the entry. The clip's lock is held.
/// @throws Failure when the store refuses something; what was stored before stays.
void writeSegments(KsNNDatabase& store, const Home& home, const KsNNDB_STTClipEntry& entry);
/// Marks the clip complete: all of its segments are written.
void completeClip(KsNNDatabase& store, const Home& home, const std::string& mediaGuid,
                  const std::string& projectGuid);

} // namespace kestrel
