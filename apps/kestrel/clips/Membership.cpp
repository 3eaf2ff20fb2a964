#include "apps/kestrel/clips/Membership.h"

#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kestrel {

namespace {

constexpr int kPageSize = 1000;

/// The clip's projects and whether it is complete.
/// @throws Failure when the store holds nothing of it.
KsNNClipSummary requireClip(KsNNDatabase& store, const Clip& clip) {
    KsNNClipQuery query;
    query.mediaGuid = clip.id;
    const std::vector<KsNNClipSummary> found = findClips(store, query);
    if (found.empty()) throw Failure(fmt::format("the store holds no transcript of {}", clip.name));
    return found.front();
}

int segmentCount(KsNNDatabase& store, const Clip& clip, const std::string& projectGuid) {
    int count = 0;
    check(store.GetSegmentCount(clip.id, projectGuid, count, false, kSchemaVersion), store,
          fmt::format("the segments of {} cannot be counted", clip.name));
    return count;
}

std::string names(const std::vector<KsNNProject>& projects) {
    std::string text;
    for (const KsNNProject& project : projects)
        text += fmt::format("{}\"{}\"", text.empty() ? "" : ", ", project.projectName);
    return text;
}

/// What is indexed by meaning of clips that are gone would be found without them.
void forgetMeaning(KsNNDatabase& store, std::vector<std::string> clips) {
    constexpr std::ptrdiff_t kClipsOfRequest = 1000;
    for (auto begin = clips.begin(); begin != clips.end();) {
        const auto end = begin + std::min(clips.end() - begin, kClipsOfRequest);
        check(store.DeleteSemanticFrames({begin, end}, false), store,
              "the transcripts are deleted, but search by meaning still finds them");
        begin = end;
    }
}

/// Removes the clip from the project. The store deletes it when no other project uses it.
void deleteEntry(KsNNDatabase& store, const std::string& clip, const std::string& projectGuid) {
    check(store.DeleteEntry(clip, projectGuid, false, kPageSize, {}), store,
          fmt::format("the clip {} cannot be deleted", clip));
}

void deleteSpeakers(KsNNDatabase& store, const KsNNProject& project) {
    std::vector<KsNNSpeakerKV> speakers;
    const std::string failed =
        fmt::format("the speakers of project \"{}\" cannot be deleted", project.projectName);
    check(store.GetAllSpeakersInProject(project.projectGuid, speakers, false), store, failed);
    for (const KsNNSpeakerKV& speaker : speakers)
        check(store.SpeakerDelete(project.projectGuid, speaker.speakerGuid, false), store, failed);
}

/// Deletes what there is of an unfinished clip; returns whether it did, and not if somebody is writing it.
bool deleteUnfinished(KsNNDatabase& store, const Home& home, const KsNNClipSummary& clip) {
    try {
        const ClipLock lock(store, home, clip.mediaGuid, false);
        bool isComplete = false; // by now
        check(store.GetProgressComplete(clip.mediaGuid, "ANY", isComplete, false, kSchemaVersion), store,
              fmt::format("the clip {} cannot be read", clip.mediaGuid));
        if (isComplete) return false;
        for (const KsNNProject& project : clip.projects)
            deleteEntry(store, clip.mediaGuid, project.projectGuid);
    } catch (const ClipInUse&) {
        return false;
    }
    Catalogue(home).remove(clip.mediaGuid, "");
    return true;
}

bool join(KsNNDatabase& store, const Home& home, const Clip& clip, const KsNNClipSummary& stored,
          const KsNNProject& project) {
    const bool isNamed = isInProject(stored, project.projectGuid);
    if (isNamed && segmentCount(store, clip, project.projectGuid) == segmentCount(store, clip, "ANY"))
        return false;
    if (!stored.isComplete)
        throw Failure(fmt::format("the transcript of {} is not complete: run `kestrel transcribe` on the "
                                  "file for project \"{}\" first",
                                  clip.name, clip.project.projectName));
    const ClipLock lock(store, home, clip.id, false);
    if (isNamed) // an earlier attempt ended half way
        check(store.RemoveProjectFromEntry(clip.id, project.projectGuid, false), store,
              fmt::format("{} cannot join project \"{}\"", clip.name, project.projectName));
    joinLocked(store, clip.id, project);
    return true;
}

} // namespace

bool joinProject(KsNNDatabase& store, const Home& home, const Clip& clip, const KsNNProject& project) {
    const KsNNClipSummary stored = requireClip(store, clip);
    const bool isNew = join(store, home, clip, stored, project);
    // The catalogue knows clips by project: what it knows of this one holds for the new project, too.
    CatalogueClip entry{clip.id, stored.clipName, clip.path, project.projectName, ""};
    for (const CatalogueClip& known : Catalogue(home).clips()) {
        if (known.id != clip.id) continue;
        if (!known.path.empty()) entry.path = known.path;
        if (!known.language.empty()) entry.language = known.language;
    }
    Catalogue(home).add(entry);
    return isNew;
}

void joinLocked(KsNNDatabase& store, const std::string& clip, const KsNNProject& project) {
    // Not `AddNewProjectToProjectList`: that shares ten speakers, and lists the project with them once more
    // for every clip that joins it.
    constexpr int kWholeClip = -1;
    const std::string failed = fmt::format("the clip cannot join project \"{}\"", project.projectName);
    check(store.AppendProjectToEntry(clip, project.projectGuid, project.projectName, kWholeClip, false),
          store, failed);
    check(store.ShareSpeakers(clip, project.projectGuid, project.projectName, false), store, failed);
}

void leaveProject(KsNNDatabase& store, const Home& home, const Clip& clip) {
    if (requireClip(store, clip).projects.size() < 2)
        throw Failure(fmt::format("{} is in no project but \"{}\": use `kestrel delete` to delete it, or "
                                  "`kestrel join` to add it to another project first",
                                  clip.name, clip.project.projectName));
    const ClipLock lock(store, home, clip.id, false);
    check(store.RemoveProjectFromEntry(clip.id, clip.project.projectGuid, false), store,
          fmt::format("{} cannot leave project \"{}\"", clip.name, clip.project.projectName));
    Catalogue(home).remove(clip.id, clip.project.projectName);
}

bool removeFromProject(KsNNDatabase& store, const Home& home, const Clip& clip) {
    const ClipLock lock(store, home, clip.id, false);
    const bool isLast = requireClip(store, clip).projects.size() < 2;
    deleteEntry(store, clip.id, clip.project.projectGuid);
    Catalogue(home).remove(clip.id, clip.project.projectName);
    if (isLast) forgetMeaning(store, {clip.id});
    return isLast;
}

void deleteEverywhere(KsNNDatabase& store, const Home& home, const Clip& clip) {
    const ClipLock lock(store, home, clip.id, false);
    const std::vector<KsNNProject> projects = requireClip(store, clip).projects;
    check(store.HardDeleteEntries({clip.id}, false), store,
          fmt::format("{} cannot be deleted from {}", clip.name, names(projects)));
    Catalogue(home).remove(clip.id, "");
    forgetMeaning(store, {clip.id});
}

std::size_t deleteProject(KsNNDatabase& store, const Home& home, const KsNNProject& project,
                          const Callbacks& callbacks) {
    KsNNClipQuery query;
    query.projectGuid = project.projectGuid;
    const std::vector<KsNNClipSummary> clips = findClips(store, query);
    std::size_t done = 0;
    const KsNN_ErrorCode code =
        store.DeleteEntry("ALL", project.projectGuid, false, kPageSize, [&](int, int, const char*) {
            callbacks.report("deleting", static_cast<double>(done) /
                                             static_cast<double>(std::max(clips.size(), done + 1)));
            if (callbacks.isCancelled()) return KsNN_Error;
            ++done;
            return KsNN_Success;
        });
    if (code != KsNN_Success) callbacks.throwIfCancelled();
    check(code, store, fmt::format("the clips of project \"{}\" cannot be deleted", project.projectName));
    deleteSpeakers(store, project);
    std::vector<std::string> deleted;
    for (const KsNNClipSummary& clip : clips) {
        if (clip.projects.size() < 2) deleted.push_back(clip.mediaGuid);
    }
    forgetMeaning(store, deleted);
    const Catalogue catalogue(home);
    for (const CatalogueClip& clip : catalogue.clips()) {
        if (clip.project == project.projectName) catalogue.remove(clip.id, clip.project);
    }
    return done;
}

std::size_t deleteUnfinished(KsNNDatabase& store, const Home& home, const Callbacks& callbacks) {
    KsNNClipQuery query;
    query.unfinishedOnly = true;
    const std::vector<KsNNClipSummary> unfinished = findClips(store, query);
    std::size_t deleted = 0;
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        callbacks.throwIfCancelled();
        callbacks.report("deleting", static_cast<double>(i) / static_cast<double>(unfinished.size()));
        if (deleteUnfinished(store, home, unfinished[i])) ++deleted;
    }
    return deleted;
}

bool unlock(KsNNDatabase& store, const Home& home, const std::string& clip) {
    if (ClipLock::isHeldHere(home, clip))
        throw Failure(fmt::format("a running kestrel is writing the clip {}: end it first", clip));
    const KsNN_ErrorCode code = store.UnlockEntry(clip, false);
    if (code == KsNN_LockConflict) return false;
    check(code, store, fmt::format("the clip {} cannot be unlocked", clip));
    return true;
}

std::vector<std::string> unlockAll(KsNNDatabase& store, const Home& home, const Callbacks& callbacks) {
    std::vector<std::string> released;
    for (bool found = true; found;) { // the store names a page of locks at a time
        found = false;
        std::vector<std::string> locked;
        check(store.FindAllLockedMediaGuids(locked, false), store, "the locks cannot be listed");
        for (const std::string& clip : locked) {
            callbacks.throwIfCancelled();
            if (ClipLock::isHeldHere(home, clip) || !unlock(store, home, clip)) continue;
            released.push_back(clip);
            found = true;
        }
    }
    return released;
}

} // namespace kestrel
