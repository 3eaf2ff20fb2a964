#include "apps/kestrel/clips/Membership.h"

#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

namespace kestrel {

namespace {

constexpr int kPageSize = 1000;

bool contains(const std::vector<KsNNProject>& projects, const std::string& guid) {
    return std::any_of(projects.begin(), projects.end(),
                       [&](const KsNNProject& project) { return project.projectGuid == guid; });
}

std::string names(const std::vector<KsNNProject>& projects) {
    std::string text;
    for (const KsNNProject& project : projects)
        text += fmt::format("{}\"{}\"", text.empty() ? "" : ", ", project.projectName);
    return text;
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
bool deleteUnfinished(KsNNDatabase& store, const Home& home, const UnfinishedClip& clip) {
    try {
        const ClipLock lock(store, home, clip.id, false);
        deleteEntry(store, clip.id, clip.projectGuid);
    } catch (const ClipInUse&) {
        return false;
    }
    Catalogue(home).remove(clip.id, "");
    return true;
}

} // namespace

std::vector<KsNNProject> projectsOf(KsNNDatabase& store, const Clip& clip) {
    return readClip(store, clip).projects;
}

bool joinProject(KsNNDatabase& store, const Home& home, const Clip& clip, const KsNNProject& project) {
    const KsNNDB_STTClipEntry entry = readClip(store, clip);
    if (contains(entry.projects, project.projectGuid)) return false;
    if (!entry.progressComplete)
        throw Failure(fmt::format("the transcript of {} is not complete: run `kestrel transcribe` on the "
                                  "file for project \"{}\" first",
                                  clip.name, clip.project.projectName));
    const ClipLock lock(store, home, clip.id, false);
    joinLocked(store, clip.id, project);
    return true;
}

void joinLocked(KsNNDatabase& store, const std::string& clip, const KsNNProject& project) {
    check(store.AddNewProjectToProjectList(clip, project.projectGuid, project.projectName, false), store,
          fmt::format("the clip cannot join project \"{}\"", project.projectName));
}

void leaveProject(KsNNDatabase& store, const Home& home, const Clip& clip) {
    const std::vector<KsNNProject> projects = projectsOf(store, clip);
    if (projects.size() < 2)
        throw Failure(fmt::format("{} is in no project but \"{}\": use `kestrel delete` to delete it, or "
                                  "`kestrel join` to add it to another project first",
                                  clip.name, clip.project.projectName));
    const ClipLock lock(store, home, clip.id, false);
    check(store.RemoveProjectFromEntry(clip.id, clip.project.projectGuid, false), store,
          fmt::format("{} cannot leave project \"{}\"", clip.name, clip.project.projectName));
    Catalogue(home).remove(clip.id, clip.project.projectName);
}

bool removeFromProject(KsNNDatabase& store, const Home& home, const Clip& clip) {
    const std::vector<KsNNProject> projects = projectsOf(store, clip);
    const ClipLock lock(store, home, clip.id, false);
    deleteEntry(store, clip.id, clip.project.projectGuid);
    Catalogue(home).remove(clip.id, clip.project.projectName);
    return projects.size() < 2;
}

void deleteEverywhere(KsNNDatabase& store, const Home& home, const Clip& clip) {
    const std::vector<KsNNProject> projects = projectsOf(store, clip);
    const ClipLock lock(store, home, clip.id, false);
    check(store.HardDeleteEntries({clip.id}, false), store,
          fmt::format("{} cannot be deleted from {}", clip.name, names(projects)));
    Catalogue(home).remove(clip.id, "");
}

std::size_t deleteProject(KsNNDatabase& store, const Home& home, const KsNNProject& project,
                          const Callbacks& callbacks) {
    const std::size_t total = completeClips(store, project.projectGuid).size();
    std::size_t done = 0;
    const KsNN_ErrorCode code =
        store.DeleteEntry("ALL", project.projectGuid, false, kPageSize, [&](int, int, const char*) {
            callbacks.report("deleting",
                             static_cast<double>(done) / static_cast<double>(std::max(total, done + 1)));
            if (callbacks.isCancelled()) return KsNN_Error;
            ++done;
            return KsNN_Success;
        });
    if (code != KsNN_Success) callbacks.throwIfCancelled();
    check(code, store, fmt::format("the clips of project \"{}\" cannot be deleted", project.projectName));
    deleteSpeakers(store, project);
    const Catalogue catalogue(home);
    for (const CatalogueClip& clip : catalogue.clips()) {
        if (clip.project == project.projectName) catalogue.remove(clip.id, clip.project);
    }
    return done;
}

std::size_t deleteUnfinished(KsNNDatabase& store, const Home& home, const Callbacks& callbacks) {
    std::set<std::pair<std::string, std::string>> seen;
    std::set<std::string> deleted;
    // The store names a page at a time; one that brings nothing new is the last.
    for (bool isNew = true; isNew;) {
        isNew = false;
        for (const UnfinishedClip& clip : unfinishedClips(store)) {
            callbacks.throwIfCancelled();
            if (!seen.emplace(clip.id, clip.projectGuid).second) continue;
            isNew = true;
            if (deleteUnfinished(store, home, clip)) deleted.insert(clip.id);
            callbacks.report(fmt::format("{} clips", deleted.size()), 0.0);
        }
    }
    return deleted.size();
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
