#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/clips/Transcription.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <chrono>
#include <numeric>

namespace kestrel {

namespace {

namespace fs = std::filesystem;

struct Outcome {
    fs::path file;
    std::string clip;
    std::string status;
    std::string error;
    std::size_t segments = 0;
    double seconds = 0.0;
};

Poco::JSON::Object::Ptr toJson(const Outcome& outcome) {
    auto object = jsonObject();
    object->set("file", outcome.file.string());
    object->set("name", outcome.file.filename().string());
    object->set("clip", outcome.clip);
    object->set("status", outcome.status);
    object->set("segments", outcome.segments);
    object->set("seconds", outcome.seconds);
    if (!outcome.error.empty()) object->set("error", outcome.error);
    return object;
}

std::size_t wordCount(const KsNNDB_STTClipEntry& entry) {
    return std::accumulate(
        entry.segments.begin(), entry.segments.end(), std::size_t{0},
        [](std::size_t sum, const KsNNDBEntrySeg& segment) { return sum + segment.wordStartsMS.size(); });
}

/// One call of `kestrel transcribe`: what its files have in common.
class Job {
public:
    explicit Job(const TranscribeOptions& options)
        : mOptions(options), mHome(Home::fromEnvironment()), mStore(openStore(mHome)),
          mTranscriber(options.engine, mHome, options.language),
          mProject(projectIdentifier(options.project)) {}

    Outcome run(const fs::path& file, std::size_t number) {
        const auto begin = std::chrono::steady_clock::now();
        const std::string title =
            fmt::format("[{}/{}] {}", number, mOptions.files.size(), file.filename().string());
        Outcome outcome;
        outcome.file = file;
        try {
            transcribeFile(title, outcome);
        } catch (const Cancelled&) {
            outcome.status = "cancelled";
            tell(fmt::format("{}  cancelled; run the same command again to take it up", title));
        } catch (const std::exception& failure) { // of whatever kind: the other files have their turn
            outcome.status = "failed";
            outcome.error = failure.what();
            tell(fmt::format("{}  failed: {}", title, failure.what()));
        }
        const auto taken = std::chrono::steady_clock::now() - begin;
        outcome.seconds =
            std::chrono::duration<double>(std::chrono::round<std::chrono::milliseconds>(taken)).count();
        return outcome;
    }

    const std::string& projectGuid() const { return mProject; }

private:
    void transcribeFile(const std::string& title, Outcome& outcome) {
        outcome.clip = clipIdentifier(outcome.file);
        if (skipComplete(title, outcome)) return;
        AudioReader audio(outcome.file); // before the lock: what is not media needs none
        const ClipLock lock(mStore, mHome, outcome.clip, mOptions.takeOverLock);
        // Another program may have completed the clip while we were on our way to the lock.
        if (skipComplete(title, outcome)) return;
        ProgressLine progress(title);
        KsNNDB_STTClipEntry entry = mTranscriber.transcribe(audio, {outcome.clip, mProject}, progress);
        entry.projectName = mOptions.project;
        entry.clipName = outcome.file.filename().string();
        entry.clientApp = "kestrel";
        writeClip(mStore, mHome, entry, outcome.clip, mProject, progress);
        outcome.status = "transcribed";
        remember(outcome);
        outcome.segments = entry.segments.size();
        progress.done(fmt::format("{} words in {} segments, {}{}", wordCount(entry), entry.segments.size(),
                                  timecode(endOf(entry.segments.back())), remarks(audio, entry)));
    }

    bool skipComplete(const std::string& title, Outcome& outcome) {
        if (clipState(mStore, outcome.clip, mProject) != ClipState::Complete) return false;
        outcome.status = "already complete";
        remember(outcome);
        tell(fmt::format("{}  already complete, skipped", title));
        return true;
    }

    void remember(const Outcome& outcome) const {
        Catalogue(mHome).add({outcome.clip, outcome.file.filename().string(),
                              fs::absolute(outcome.file).string(), mOptions.project, mOptions.language});
    }

    static std::string remarks(const AudioReader& audio, const KsNNDB_STTClipEntry& entry) {
        std::string text;
        if (wordCount(entry) == 0) text += "; no speech was found";
        if (audio.damagedPieces() > 0)
            text += fmt::format("; {} damaged pieces of the file were left out", audio.damagedPieces());
        return text;
    }

    const TranscribeOptions& mOptions;
    Home mHome;
    KsNNDatabase mStore;
    Transcriber mTranscriber;
    std::string mProject;
};

} // namespace

int transcribe(const TranscribeOptions& options) {
    catchInterrupts();
    Job job(options);
    Poco::JSON::Array::Ptr clips = new Poco::JSON::Array;
    bool allFine = true;
    for (std::size_t i = 0; i < options.files.size() && !wasInterrupted(); ++i) {
        const Outcome outcome = job.run(options.files[i], i + 1);
        allFine = allFine && outcome.error.empty();
        clips->add(toJson(outcome));
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("project", options.project);
        document->set("projectId", job.projectGuid());
        document->set("clips", clips);
        printResult(document);
    }
    if (wasInterrupted()) return ExitCancelled;
    return allFine ? ExitFine : ExitFailed;
}

} // namespace kestrel
