#include "apps/kestrel/clips/ClipWriter.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

const char* const kHeldNote = "held\n";

fs::path lockFile(const Home& home, const std::string& mediaGuid) {
    return home.runFolder() / fmt::format("{}.lock", mediaGuid);
}

FileLock takeOurs(const Home& home, const std::string& mediaGuid) {
    auto lock = FileLock::tryTake(lockFile(home, mediaGuid));
    if (!lock) throw ClipInUse("another kestrel is writing this clip; try again when it is done");
    return std::move(*lock);
}

std::string spaceWarning(const Home& home) {
    constexpr std::uintmax_t kLittle = std::uintmax_t{16} << 20;
    std::error_code error;
    const fs::space_info space = fs::space(home.root(), error);
    return !error && space.available < kLittle
               ? fmt::format(" (no space left on the disk of {})", home.root().string())
               : "";
}

} // namespace

ClipLock::ClipLock(KsNNDatabase& store, const Home& home, const std::string& mediaGuid, bool takeOver)
    : mStore(store), mMediaGuid(mediaGuid), mOurs(takeOurs(home, mediaGuid)) {
    const bool leftBehind = mOurs.note() == kHeldNote;
    try {
        lock(takeOver || leftBehind);
    } catch (const Failure&) {
        if (!leftBehind) mOurs.removeFile();
        throw;
    }
}

void ClipLock::lock(bool takeOver) {
    KsNN_ErrorCode code = mStore.LockEntry(mMediaGuid, false);
    if (code == KsNN_LockConflict && takeOver) {
        mStore.UnlockEntry(mMediaGuid, false);
        code = mStore.LockEntry(mMediaGuid, false);
    }
    if (code == KsNN_LockConflict)
        throw ClipInUse(
            "another program is writing this clip; try again when it is done, or, if it crashed and "
            "left its lock behind, release it with `kestrel unlock`");
    check(code, mStore, "the clip cannot be locked");
    mOurs.setNote(kHeldNote);
}

ClipLock::~ClipLock() {
    const KsNN_ErrorCode code = mStore.UnlockEntry(mMediaGuid, false);
    // Somebody may have taken the lock away already: then it is not ours any more either.
    if (code == KsNN_Success || code == KsNN_LockConflict) mOurs.removeFile();
}

bool ClipLock::isHeldHere(const Home& home, const std::string& mediaGuid) {
    const fs::path file = lockFile(home, mediaGuid);
    return fs::exists(file) && !FileLock::tryTake(file);
}

ClipState clipState(KsNNDatabase& store, const std::string& mediaGuid, const std::string& projectGuid) {
    const std::string failed = "the store cannot be asked for the clip";
    int ours = 0;
    int all = 0;
    check(store.GetSegmentCount(mediaGuid, projectGuid, ours, false, kSchemaVersion), store, failed);
    check(store.GetSegmentCount(mediaGuid, "ANY", all, false, kSchemaVersion), store, failed);
    if (all == 0) return ClipState::Absent;
    bool complete = false;
    check(store.GetProgressComplete(mediaGuid, "ANY", complete, false, kSchemaVersion), store, failed);
    if (ours > 0) return complete ? ClipState::Complete : ClipState::Begun;
    if (!complete)
        throw Failure("another project has begun this clip and not completed it: complete it there, or "
                      "remove what there is with `kestrel delete --unfinished`");
    return ClipState::Elsewhere;
}

std::vector<KsNNDBEntrySeg> storedSegments(KsNNDatabase& store, const std::string& mediaGuid,
                                           const std::string& projectGuid) {
    KsNNDB_STTClipEntry stored;
    check(store.GetWholeClip(mediaGuid, projectGuid, stored, false), store,
          "the store cannot be asked for the clip");
    return stored.segments;
}

void writeSegments(KsNNDatabase& store, const Home& home, const KsNNDB_STTClipEntry& entry) {
    for (const KsNNDBEntrySeg& segment : entry.segments)
        check(store.WriteToDB(entry, segment, false), store,
              fmt::format("the store did not take segment {}{}; run the same command again to write the rest",
                          segment.segment + 1, spaceWarning(home)));
}

void completeClip(KsNNDatabase& store, const Home& home, const std::string& mediaGuid,
                  const std::string& projectGuid) {
    check(store.SetProgressComplete(mediaGuid, false, kSchemaVersion, projectGuid), store,
          "the clip cannot be marked complete" + spaceWarning(home));
}

} // namespace kestrel
