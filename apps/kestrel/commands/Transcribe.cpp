#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipTranscriber.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/media/MediaFolder.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"
#include "apps/kestrel/terminal/TimeLeft.h"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <map>
#include <memory>
#include <numeric>

namespace kestrel {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMainStage = "transcribing"; ///< The one that takes the time.

struct TranscribeOptions {
    std::vector<fs::path> sources; ///< Files and folders.
    TranscriptionSettings settings;
    bool json = false;
};

const char* textOf(FileStatus status) {
    switch (status) {
    case FileStatus::Transcribed:
        return "transcribed";
    case FileStatus::NoSpeech:
        return "no speech";
    case FileStatus::Replaced:
        return "replaced";
    case FileStatus::AlreadyComplete:
        return "already complete";
    case FileStatus::Joined:
        return "joined";
    case FileStatus::Failed:
        return "failed";
    case FileStatus::Cancelled:
        return "cancelled";
    }
    return "";
}

Poco::JSON::Object::Ptr toJson(const FileOutcome& outcome, double seconds) {
    auto object = jsonObject();
    const auto shown = [](const fs::path& path) { // JSON is UTF-8
        return isUtf8(path.string()) ? path.string() : printableName(path.string());
    };
    object->set("file", shown(outcome.file));
    object->set("name", shown(outcome.file.filename()));
    object->set("clip", outcome.clip);
    object->set("status", textOf(outcome.status));
    object->set("segments", outcome.segments);
    object->set("seconds", seconds);
    if (!outcome.error.empty()) object->set("error", outcome.error);
    if (!outcome.warnings.empty()) object->set("warnings", jsonArray(outcome.warnings));
    return object;
}

std::string describe(const FileOutcome& outcome) {
    std::string text = fmt::format("{} in {}, {}", counted(outcome.words, "word"),
                                   counted(outcome.segments, "segment"), timecode(outcome.endMs));
    if (outcome.status == FileStatus::Replaced) text += "; in the place of the transcript before";
    return text;
}

std::string summaryOf(const FileOutcome& outcome) {
    switch (outcome.status) {
    case FileStatus::Transcribed:
    case FileStatus::Replaced:
        return describe(outcome);
    case FileStatus::NoSpeech:
        return "no speech was found";
    case FileStatus::AlreadyComplete:
        return "already complete, skipped";
    case FileStatus::Joined:
        return "transcribed for another project already; joined this one";
    case FileStatus::Failed:
        return "failed: " + outcome.error;
    case FileStatus::Cancelled:
        return "cancelled; run the same command again to resume";
    }
    return "";
}

bool parseTrack(const std::string& text, std::optional<TrackChoice>& tracks) {
    if (text == "all") {
        tracks = TrackChoice{TrackChoice::Kind::All, 0};
        return true;
    }
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0) return false;
    tracks = TrackChoice{TrackChoice::Kind::One, number};
    return true;
}

/// The files to transcribe: those named, and the media files in the folders named.
std::vector<fs::path> filesOf(const std::vector<fs::path>& sources) {
    std::vector<fs::path> files;
    for (const fs::path& source : sources) {
        std::error_code error;
        if (!fs::is_directory(source, error)) {
            files.push_back(source);
            continue;
        }
        const MediaFolder folder = listMediaFolder(source);
        files.insert(files.end(), folder.files.begin(), folder.files.end());
        files.insert(files.end(), folder.unreadable.begin(), folder.unreadable.end()); // each a failure
        if (folder.files.empty() && folder.unreadable.empty())
            tell(fmt::format("{} holds no media file", printableName(source.string())));
    }
    return files;
}

bool wasTranscribed(const FileOutcome& outcome) {
    return outcome.status == FileStatus::Transcribed || outcome.status == FileStatus::Replaced ||
           outcome.status == FileStatus::NoSpeech;
}

std::uintmax_t sizeOf(const fs::path& file) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

/// Transcribes one file after another and tells how it goes.
class Batch {
public:
    explicit Batch(const TranscribeOptions& options)
        : mFiles(filesOf(options.sources)), mTranscriber(options.settings),
          mTimeLeft(
              std::accumulate(mFiles.begin(), mFiles.end(), std::uintmax_t{0},
                              [](std::uintmax_t sum, const fs::path& file) { return sum + sizeOf(file); })) {}

    void run() {
        if (mFiles.empty()) throw Failure("there is no file to transcribe");
        mTranscriber.completeInterrupted(terminalCallbacks());
        const auto begin = Clock::now();
        for (std::size_t i = 0; i < mFiles.size() && !wasInterrupted(); ++i)
            transcribe(i);
        if (mFiles.size() > 1)
            tellSummary(std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin));
    }

    Poco::JSON::Object::Ptr toJson() const {
        auto document = jsonObject();
        document->set("project", mTranscriber.project().projectName);
        document->set("projectId", mTranscriber.project().projectGuid);
        document->set("clips", mClips);
        return document;
    }

    bool hasFailures() const { return mCounts.contains(FileStatus::Failed); }

private:
    using Clock = std::chrono::steady_clock;

    void transcribe(std::size_t index) {
        const fs::path& file = mFiles[index];
        const auto begin = Clock::now();
        ProgressLine line(fmt::format("[{}/{}] {}", index + 1, mFiles.size(), file.filename().string()));
        Callbacks callbacks = terminalCallbacks(line);
        callbacks.progress = [&](const std::string& stage, double fraction) {
            line.show(stage, fraction, stage == kMainStage ? mTimeLeft.note(fraction) : "");
        };
        mTimeLeft.begin(sizeOf(file));
        const FileOutcome outcome = mTranscriber.transcribe(file, callbacks);
        mTimeLeft.end(wasTranscribed(outcome));
        line.done(summaryOf(outcome));
        for (const std::string& warning : outcome.warnings)
            tell("  " + warning);
        ++mCounts[outcome.status];
        if (outcome.status == FileStatus::Failed)
            mFailures += fmt::format("\n    {}: {}", printableName(file.string()), outcome.error);
        const auto taken = std::chrono::round<std::chrono::milliseconds>(Clock::now() - begin);
        mClips->add(kestrel::toJson(outcome, std::chrono::duration<double>(taken).count()));
    }

    void tellSummary(std::chrono::seconds taken) const {
        std::string text;
        std::size_t done = 0;
        for (const auto& [status, count] : mCounts) {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count, textOf(status));
            done += count;
        }
        if (done < mFiles.size()) text += fmt::format(", {} not begun", mFiles.size() - done);
        tell(fmt::format("{} in {}: {}{}", counted(mFiles.size(), "file"), durationText(taken), text,
                         mFailures));
    }

    std::vector<fs::path> mFiles;
    ClipTranscriber mTranscriber;
    TimeLeft mTimeLeft;
    Poco::JSON::Array::Ptr mClips = new Poco::JSON::Array;
    std::map<FileStatus, std::size_t> mCounts;
    std::string mFailures;
};

int transcribe(const TranscribeOptions& options) {
    catchInterrupts();
    Batch batch(options);
    batch.run();
    if (options.json) printResult(batch.toJson());
    if (wasInterrupted()) return ExitCancelled;
    return batch.hasFailures() ? ExitFailed : ExitFine;
}

Run setUp(CLI::App& app) {
    static const std::map<std::string, EngineKind> engines{
        {"service", EngineKind::Service}, {"embedded", EngineKind::Embedded}, {"ctc", EngineKind::Ctc}};
    auto options = std::make_shared<TranscribeOptions>();
    TranscriptionSettings& settings = options->settings;
    app.add_option("FILE", options->sources,
                   "Anything with audio that FFmpeg reads, video too; of a folder all media files in it and "
                   "in the folders in it")
        ->required();
    addProjectOption(app, settings.project)->required();
    app.add_option("--language", settings.language,
                   "Code of the language spoken, such as en (default: auto, which finds it, also where it\n"
                   "changes); for ctc its name, such as \"English (phonemes)\"");
    app.add_option(
           "--track",
           [&settings](const CLI::results_t& texts) { return parseTrack(texts.front(), settings.tracks); },
           "Audio track to transcribe: its number, or all, mixed (default: the one in which somebody speaks)")
        ->type_name("N|all");
    app.add_option(
           "--engine", settings.engine,
           "Transcribe in the speech service, embedded in this process, or by an acoustic model alone,\n"
           "which is fast and writes what it hears, without sentences or speakers (default: service)")
        ->transform(oneOf(engines));
    app.add_option("--model", settings.model,
                   "Recognition model for this run; `kestrel models` lists them (default: the one in use)");
    app.add_option("--terms", settings.terms,
                   "File of names and terms that are said, one a line, beside those of home and project")
        ->check(CLI::ExistingFile);
    app.add_flag("--again", settings.again,
                 "Transcribe what is complete too, and replace its transcript once the new one is whole");
    app.add_flag("--take-over-lock", settings.takeOverLock,
                 "Write a clip even though another program left it locked");
    addJsonFlag(app, options->json);
    app.footer(
        "A clip is known by its content: a file that is moved or renamed is not transcribed again. After an\n"
        "interruption the same command continues behind what is stored. Ctrl-C cancels.\n"
        "The exit code is 0 when all went well, 1 when some files failed, 130 when cancelled.\n\n"
        "Examples:\n  kestrel transcribe interview.mov --project Rivers --language en\n"
        "  kestrel transcribe takes/ --project Rivers --language fr\n"
        "  kestrel transcribe interview.mov --project Rivers --language de --again");
    return [options] { return transcribe(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "transcribe",
                                         "Make transcripts of media files and store them", setUp});

} // namespace

} // namespace kestrel
