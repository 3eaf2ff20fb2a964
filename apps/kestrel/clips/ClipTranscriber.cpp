#include "apps/kestrel/clips/ClipTranscriber.h"

#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <numeric>
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
      mProject(projectIdentifier(mSettings.project)) {
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
    if (isAlreadyComplete(outcome)) return;
    AudioReader audio(outcome.file); // before the lock: what is not media needs none
    const ClipLock lock(mStore, mHome, outcome.clip, mSettings.takeOverLock);
    // Another program may have completed the clip while we were on our way to the lock.
    if (isAlreadyComplete(outcome)) return;
    KsNNDB_STTClipEntry entry = mTranscriber->transcribe(audio, {outcome.clip, mProject}, callbacks);
    entry.projectName = mSettings.project;
    entry.clipName = outcome.file.filename().string();
    entry.clientApp = "kestrel";
    writeClip(mStore, mHome, entry, outcome.clip, mProject, callbacks);
    outcome.status = FileStatus::Transcribed;
    remember(outcome);
    describe(entry, audio, outcome);
}

bool ClipTranscriber::isAlreadyComplete(FileOutcome& outcome) {
    if (clipState(mStore, outcome.clip, mProject) != ClipState::Complete) return false;
    outcome.status = FileStatus::AlreadyComplete;
    remember(outcome);
    return true;
}

void ClipTranscriber::remember(const FileOutcome& outcome) const {
    Catalogue(mHome).add({outcome.clip, outcome.file.filename().string(), fs::absolute(outcome.file).string(),
                          mSettings.project, mSettings.language});
}

} // namespace kestrel
