#include "apps/kestrel/clips/ClipTranscriber.h"

#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <numeric>
#include <optional>
#include <utility>

namespace kestrel {

namespace {

namespace fs = std::filesystem;

std::size_t wordCount(const KsNNDB_STTClipEntry& entry) {
    return std::accumulate(
        entry.segments.begin(), entry.segments.end(), std::size_t{0},
        [](std::size_t sum, const KsNNDBEntrySeg& segment) { return sum + segment.wordStartsMS.size(); });
}

void describe(const KsNNDB_STTClipEntry& entry, const AudioReader& audio, FileOutcome& outcome) {
    outcome.segments = entry.segments.size();
    outcome.words = wordCount(entry);
    outcome.endMs = endOf(entry.segments.back());
    if (outcome.words == 0) outcome.warnings.emplace_back("no speech was found");
    if (audio.damagedPieces() > 0)
        outcome.warnings.push_back(
            fmt::format("{} damaged pieces of the file were left out", audio.damagedPieces()));
}

} // namespace

ClipTranscriber::ClipTranscriber(TranscriptionSettings settings)
    : mSettings(std::move(settings)), mHome(Home::fromEnvironment()), mStore(openStore(mHome)),
      mTranscriber(makeTranscriber(mSettings.engine, mHome, mSettings.language)),
      mProject(findProject(mStore, mSettings.project)) {
}

FileOutcome ClipTranscriber::transcribe(const fs::path& file, const Callbacks& callbacks) {
    FileOutcome outcome;
    outcome.file = file;
    try {
        transcribeFile(outcome, callbacks);
    } catch (const Cancelled&) {
        outcome.status = FileStatus::Cancelled;
    } catch (const std::exception& failure) {
        outcome.status = FileStatus::Failed;
        outcome.error = failure.what();
    }
    return outcome;
}

void ClipTranscriber::transcribeFile(FileOutcome& outcome, const Callbacks& callbacks) {
    outcome.clip = clipIdentifier(outcome.file, callbacks);
    ClipState state = clipState(mStore, outcome.clip, mProject.projectGuid);
    if (state == ClipState::Complete) return settle(outcome, FileStatus::AlreadyComplete);
    std::optional<AudioReader> audio; // opened before the lock: what is not media needs none
    if (state != ClipState::Elsewhere) audio.emplace(outcome.file);
    const ClipLock lock(mStore, mHome, outcome.clip, mSettings.takeOverLock);
    // Another program may have written or deleted the clip while we were on our way to the lock.
    state = clipState(mStore, outcome.clip, mProject.projectGuid);
    if (state == ClipState::Complete) return settle(outcome, FileStatus::AlreadyComplete);
    if (state == ClipState::Elsewhere) {
        joinLocked(mStore, outcome.clip, mProject);
        return settle(outcome, FileStatus::Joined);
    }
    if (!audio) audio.emplace(outcome.file);
    KsNNDB_STTClipEntry entry =
        mTranscriber->transcribe(*audio, {outcome.clip, mProject.projectGuid}, callbacks);
    entry.projectName = mProject.projectName;
    entry.clipName = outcome.file.filename().string();
    entry.clientApp = "kestrel";
    remember(outcome); // before the first segment, so that a clip that stays unfinished is known, too
    writeClip(mStore, mHome, entry, outcome.clip, mProject.projectGuid, callbacks);
    outcome.status = FileStatus::Transcribed;
    describe(entry, *audio, outcome);
}

/// The store has the whole transcript already.
void ClipTranscriber::settle(FileOutcome& outcome, FileStatus status) const {
    outcome.status = status;
    remember(outcome);
}

void ClipTranscriber::remember(const FileOutcome& outcome) const {
    Catalogue(mHome).add({outcome.clip, outcome.file.filename().string(), fs::absolute(outcome.file).string(),
                          mSettings.project, mSettings.language});
}

} // namespace kestrel
