#include "apps/kestrel/clips/ClipTranscriber.h"

#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/clips/ClipAudio.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/Replacement.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/TextReport.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/home/Recognisers.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <utility>

namespace kestrel {

namespace {

namespace fs = std::filesystem;

std::size_t wordCount(const KsNNDB_STTClipEntry& entry) {
    return std::accumulate(
        entry.segments.begin(), entry.segments.end(), std::size_t{0},
        [](std::size_t sum, const KsNNDBEntrySeg& segment) { return sum + segment.wordStartsMS.size(); });
}

/// Gives each new segment the speaker who was named for most of its time before. Returns how many of the
/// speakers that were named have no segment now.
std::size_t keepSpeakerNames(const KsNNDB_STTClipEntry& old, KsNNDB_STTClipEntry& made) {
    std::vector<const KsNNDBEntrySeg*> named;
    std::set<std::string> lost;
    for (const KsNNDBEntrySeg& segment : old.segments) {
        if (!hasSpeaker(segment)) continue;
        named.push_back(&segment);
        lost.insert(segment.speakerGuid);
    }
    auto first = named.begin();
    for (KsNNDBEntrySeg& segment : made.segments) {
        const std::int32_t start = startOf(segment);
        const std::int32_t end = endOf(segment);
        first = std::find_if(first, named.end(), [&](const auto* before) { return endOf(*before) > start; });
        std::map<std::string, std::int64_t> spoken;
        for (auto before = first; before != named.end() && startOf(**before) < end; ++before)
            spoken[(*before)->speakerGuid] +=
                std::max(0, std::min(endOf(**before), end) - std::max(startOf(**before), start));
        for (const auto& [speaker, time] : spoken) {
            if (2 * time <= end - start) continue;
            segment.speakerGuid = speaker;
            lost.erase(speaker);
        }
    }
    return lost.size();
}

/// What to do when a service has gone in the middle; empty when none has.
std::string adviceFor(EngineKind engine, const Home& home) {
    const Services::Running running = Services(home).running();
    for (const Service service : kAllServices) {
        const bool isNeeded = service == Service::Index || engine == EngineKind::Service;
        if (!isNeeded || running.contains(service)) continue;
        return fmt::format(
            "; the {} service has ended (its log: {}): run `kestrel up`, then the same command "
            "again",
            nameOf(service), Services(home).logFile(service).string());
    }
    return "";
}

} // namespace

ClipTranscriber::ClipTranscriber(TranscriptionSettings settings)
    : mSettings(std::move(settings)), mHome(Home::fromEnvironment()), mStore(openStore(mHome)),
      mDetector(modelFolder() / "voices" / "detector.onnx"),
      mTranscriber(
          makeTranscriber(mSettings.engine, mHome, mSettings.language,
                          {mSettings.model, recogniserTerms(mHome, mSettings.project, mSettings.terms)})),
      mProject(findProject(mStore, mSettings.project)) {
}

void ClipTranscriber::completeInterrupted(const Callbacks& callbacks) {
    completeReplacements(mStore, mHome, callbacks);
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
        outcome.error = failure.what() + adviceFor(mSettings.engine, mHome);
    }
    return outcome;
}

void ClipTranscriber::transcribeFile(FileOutcome& outcome, const Callbacks& callbacks) {
    if (!isUtf8(outcome.file.string())) throw Failure("has a name that is not UTF-8: rename it");
    outcome.clip = clipIdentifier(outcome.file, callbacks);
    const ClipState before = clipState(mStore, outcome.clip, mProject.projectGuid);
    if (before == ClipState::Complete && !mSettings.again)
        return settle(outcome, FileStatus::AlreadyComplete);
    std::optional<ClipAudio> audio; // opened before the lock: what is not media needs none
    const auto open = [&] { audio.emplace(outcome.file, mSettings.tracks, mDetector, callbacks); };
    if (before != ClipState::Elsewhere || mSettings.again) open();
    const ClipLock lock(mStore, mHome, outcome.clip, mSettings.takeOverLock);
    // Another program may have written or deleted the clip before the lock was taken.
    const ClipState state = clipState(mStore, outcome.clip, mProject.projectGuid);
    if (state == ClipState::Elsewhere) joinLocked(mStore, outcome.clip, mProject);
    if (!mSettings.again && state == ClipState::Complete) return settle(outcome, FileStatus::AlreadyComplete);
    if (!mSettings.again && state == ClipState::Elsewhere) return settle(outcome, FileStatus::Joined);
    if (!audio) open();
    if (mSettings.again && state != ClipState::Absent)
        replace(outcome, *audio, callbacks);
    else
        write(outcome, *audio, callbacks);
}

void ClipTranscriber::nameClip(const FileOutcome& outcome, KsNNDB_STTClipEntry& entry) const {
    entry.projectName = mProject.projectName;
    entry.clipName = outcome.file.filename().string();
    entry.clientApp = "kestrel";
}

void ClipTranscriber::write(FileOutcome& outcome, ClipAudio& audio, const Callbacks& callbacks) {
    const auto store = [&](KsNNDB_STTClipEntry part) {
        nameClip(outcome, part);
        remember(outcome); // before the first segment, so that a clip that stays unfinished is known, too
        writeSegments(mStore, mHome, part);
    };
    const KsNNDB_STTClipEntry entry = mTranscriber->transcribe(
        audio, {outcome.clip, mProject.projectGuid},
        storedSegments(mStore, outcome.clip, mProject.projectGuid), store, callbacks);
    completeClip(mStore, mHome, outcome.clip, mProject.projectGuid);
    describe(entry, audio, outcome);
}

void ClipTranscriber::replace(FileOutcome& outcome, ClipAudio& audio, const Callbacks& callbacks) {
    // Read first: the store may be gone when the new transcript is whole, which is kept then.
    const KsNNDB_STTClipEntry old =
        readClip(mStore, {outcome.clip, outcome.file.filename().string(), "", mProject});
    const auto keepNothing = [](const KsNNDB_STTClipEntry&) {};
    KsNNDB_STTClipEntry entry =
        mTranscriber->transcribe(audio, {outcome.clip, mProject.projectGuid}, {}, keepNothing, callbacks);
    nameClip(outcome, entry);
    // Speakers may have been named meanwhile, projects joined; if the store has gone, what was read will do.
    KsNNDB_STTClipEntry latest;
    const bool isRead =
        mStore.GetWholeClip(outcome.clip, mProject.projectGuid, latest, false) == KsNN_Success;
    const KsNNDB_STTClipEntry& replaced = isRead && !latest.segments.empty() ? latest : old;
    const std::size_t lostNames = keepSpeakerNames(replaced, entry);
    replaceTranscript(mStore, mHome, outcome.clip, entry, replaced.projects);
    remember(outcome);
    describe(entry, audio, outcome);
    outcome.status = FileStatus::Replaced;
    if (lostNames > 0)
        outcome.warnings.push_back(
            fmt::format("{} of the old transcript could not be found again in the new one; assign names with "
                        "`kestrel speakers assign`",
                        counted(lostNames, "named speaker")));
}

void ClipTranscriber::describe(const KsNNDB_STTClipEntry& entry, const ClipAudio& audio,
                               FileOutcome& outcome) const {
    outcome.segments = entry.segments.size();
    outcome.words = wordCount(entry);
    outcome.endMs = endOf(entry.segments.back());
    outcome.warnings = audio.warnings();
    outcome.warnings.insert(outcome.warnings.end(), mTranscriber->warnings().begin(),
                            mTranscriber->warnings().end());
    const std::vector<std::string> ofText = textWarnings(entry, audio.voiced());
    outcome.warnings.insert(outcome.warnings.end(), ofText.begin(), ofText.end());
    outcome.status = outcome.words == 0 && ofText.empty() ? FileStatus::NoSpeech : FileStatus::Transcribed;
}

/// The store has the whole transcript already.
void ClipTranscriber::settle(FileOutcome& outcome, FileStatus status) const {
    outcome.status = status;
    remember(outcome);
}

void ClipTranscriber::remember(const FileOutcome& outcome) const {
    Catalogue(mHome).add({outcome.clip, outcome.file.filename().string(),
                          fs::absolute(outcome.file).lexically_normal().string(), mSettings.project,
                          mSettings.language});
}

} // namespace kestrel
