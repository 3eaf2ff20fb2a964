#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipTranscriber.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <chrono>
#include <map>
#include <memory>

namespace kestrel {

namespace {

struct TranscribeOptions {
    std::vector<std::filesystem::path> files;
    TranscriptionSettings settings;
    bool json = false;
};

const char* textOf(FileStatus status) {
    switch (status) {
    case FileStatus::Transcribed:
        return "transcribed";
    case FileStatus::NoSpeech:
        return "no speech";
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

Poco::JSON::Array::Ptr listOf(const std::vector<std::string>& texts) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const std::string& text : texts)
        list->add(text);
    return list;
}

Poco::JSON::Object::Ptr toJson(const FileOutcome& outcome, double seconds) {
    auto object = jsonObject();
    object->set("file", outcome.file.string());
    object->set("name", outcome.file.filename().string());
    object->set("clip", outcome.clip);
    object->set("status", textOf(outcome.status));
    object->set("segments", outcome.segments);
    object->set("seconds", seconds);
    if (!outcome.error.empty()) object->set("error", outcome.error);
    if (!outcome.warnings.empty()) object->set("warnings", listOf(outcome.warnings));
    return object;
}

std::string summaryOf(const FileOutcome& outcome) {
    switch (outcome.status) {
    case FileStatus::Transcribed: {
        std::string text = fmt::format("{} words in {} segments, {}", outcome.words, outcome.segments,
                                       timecode(outcome.endMs));
        return text;
    }
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

int transcribe(const TranscribeOptions& options) {
    using Clock = std::chrono::steady_clock;
    catchInterrupts();
    ClipTranscriber transcriber(options.settings);
    Poco::JSON::Array::Ptr clips = new Poco::JSON::Array;
    bool allFine = true;
    for (std::size_t i = 0; i < options.files.size() && !wasInterrupted(); ++i) {
        const auto begin = Clock::now();
        ProgressLine line(
            fmt::format("[{}/{}] {}", i + 1, options.files.size(), options.files[i].filename().string()));
        const FileOutcome outcome = transcriber.transcribe(options.files[i], terminalCallbacks(line));
        line.done(summaryOf(outcome));
        for (const std::string& warning : outcome.warnings)
            tell("  " + warning);
        const auto taken = std::chrono::round<std::chrono::milliseconds>(Clock::now() - begin);
        clips->add(toJson(outcome, std::chrono::duration<double>(taken).count()));
        allFine = allFine && outcome.status != FileStatus::Failed;
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("project", transcriber.project().projectName);
        document->set("projectId", transcriber.project().projectGuid);
        document->set("clips", clips);
        printResult(document);
    }
    if (wasInterrupted()) return ExitCancelled;
    return allFine ? ExitFine : ExitFailed;
}

Run setUp(CLI::App& app) {
    static const std::map<std::string, EngineKind> engines{
        {"service", EngineKind::Service}, {"embedded", EngineKind::Embedded}, {"ctc", EngineKind::Ctc}};
    auto options = std::make_shared<TranscribeOptions>();
    TranscriptionSettings& settings = options->settings;
    app.add_option("FILE", options->files, "Anything with audio that FFmpeg reads, video too")->required();
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
        ->transform(CLI::CheckedTransformer(engines).description("{service,embedded,ctc}"));
    app.add_option("--model", settings.model,
                   "Recognition model for this run; `kestrel models` lists them (default: the one in use)");
    app.add_option("--terms", settings.terms,
                   "File of names and terms that are said, one a line, beside those of home and project")
        ->check(CLI::ExistingFile);
    app.add_flag("--take-over-lock", settings.takeOverLock,
                 "Write a clip even though another program left it locked");
    addJsonFlag(app, options->json);
    app.footer(
        "A clip is known by its content: a file that is moved or renamed is not transcribed again. After an\n"
        "interruption the same command continues behind what is stored. Ctrl-C cancels.\n"
        "The exit code is 0 when all went well, 1 when some files failed, 130 when cancelled.\n\n"
        "Examples:\n  kestrel transcribe interview.mov --project Rivers --language en\n"
        "  kestrel transcribe takes/*.mxf --project Rivers --track all --engine embedded --json");
    return [options] { return transcribe(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "transcribe",
                                         "Make transcripts of media files and store them", setUp});

} // namespace

} // namespace kestrel
