/// The command-line host: reads the command line and calls the command.

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/terminal/Output.h"
#include "kestrelml/core/KsNNVersion.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <functional>
#include <map>

namespace {

using Run = std::function<int()>;

const char* const projectHelp = "Name of the project";
const char* const jsonHelp = "Write one JSON document";
const char* const clipHelp = "Name of the clip, its file, or its identifier (six digits or more will do)";

void addUp(CLI::App& app, Run& run) {
    static kestrel::UpOptions options;
    CLI::App* command = app.add_subcommand("up", "Start the index service and the speech service");
    command->add_option("--index-port", options.indexPort, "Port of the index service; 0: any free one")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    command->add_option("--speech-port", options.speechPort, "Port of the speech service; 0: any free one")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    command->footer(
        "Both run on after the terminal is closed, until `kestrel down`. Their logs are in "
        "$KESTREL_HOME/log.\n\nExamples:\n  kestrel up\n  kestrel up --index-port 0 --speech-port 0");
    command->callback([&run] { run = [] { return kestrel::up(options); }; });
}

void addDown(CLI::App& app, Run& run) {
    CLI::App* command = app.add_subcommand("down", "Stop what `kestrel up` started");
    command->footer("Example:\n  kestrel down");
    command->callback([&run] { run = kestrel::down; });
}

void addStatus(CLI::App& app, Run& run) {
    static kestrel::StatusOptions options;
    CLI::App* command = app.add_subcommand("status", "Show whether the services run and answer");
    command->add_flag("--json", options.json, jsonHelp);
    command->footer("The exit code is 0 when both answer, else 1.\n\nExample:\n  kestrel status --json");
    command->callback([&run] { run = [] { return kestrel::status(options); }; });
}

void addTranscribe(CLI::App& app, Run& run) {
    static kestrel::TranscribeOptions options;
    static const std::map<std::string, kestrel::EngineKind> engines{
        {"service", kestrel::EngineKind::Service}, {"embedded", kestrel::EngineKind::Embedded}};
    CLI::App* command = app.add_subcommand("transcribe", "Make transcripts of media files and store them");
    command->add_option("FILE", options.files, "Anything with sound that FFmpeg reads, video too")
        ->required();
    command->add_option("--project", options.project, projectHelp)->required();
    command->add_option("--language", options.language, "Code of the language spoken, such as en")
        ->required();
    command
        ->add_option("--engine", options.engine,
                     "Transcribe in the speech service, or embedded in this process (default: service)")
        ->transform(CLI::CheckedTransformer(engines).description("{service,embedded}"));
    command->add_flag("--take-over-lock", options.takeOverLock,
                      "Write a clip even though another program left it locked");
    command->add_flag("--json", options.json, jsonHelp);
    command->footer(
        "A clip is known by its content: a file that is moved or renamed is not transcribed again. What was\n"
        "broken off is taken up by the same command. Ctrl-C cancels.\n"
        "The exit code is 0 when all went well, 1 when some files failed, 130 when cancelled.\n\n"
        "Examples:\n  kestrel transcribe interview.mov --project Rivers --language en\n"
        "  kestrel transcribe takes/*.mxf --project Rivers --language fr --engine embedded --json");
    command->callback([&run] { run = [] { return kestrel::transcribe(options); }; });
}

void addSearch(CLI::App& app, Run& run) {
    static kestrel::SearchOptions options;
    CLI::App* command = app.add_subcommand("search", "Find where a phrase is said, misspellings forgiven");
    command->add_option("PHRASE", options.phrase, "What to look for; quote several words")->required();
    command->add_option("--project", options.project, projectHelp)->required();
    command
        ->add_option("--threshold", options.threshold,
                     "Lowest score of a hit; 1: equal but for case and accents")
        ->capture_default_str()
        ->check(CLI::Range(0.0F, 1.0F));
    command->add_option("--max", options.maxResults, "Number of hits to show, best first")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000));
    command->add_flag("--json", options.json, jsonHelp);
    command->footer("Examples:\n  kestrel search \"the old brige\" --project Rivers\n"
                    "  kestrel search bridge --project Rivers --threshold 0.8 --max 5 --json");
    command->callback([&run] { run = [] { return kestrel::search(options); }; });
}

void addShow(CLI::App& app, Run& run) {
    static kestrel::ShowOptions options;
    CLI::App* command = app.add_subcommand("show", "Show a clip's transcript with times and speakers");
    command->add_option("CLIP", options.clip, clipHelp)->required();
    command->add_option("--project", options.project,
                        "Name of the project, when a clip name is used in several");
    command->add_flag("--json", options.json, jsonHelp);
    command->footer("Examples:\n  kestrel show interview.mov\n  kestrel show 3f9a1c77 --json");
    command->callback([&run] { run = [] { return kestrel::show(options); }; });
}

void addAlign(CLI::App& app, Run& run) {
    static kestrel::AlignOptions options;
    static const std::map<std::string, kestrel::ScriptFormat> formats{
        {"auto", kestrel::ScriptFormat::Auto},
        {"plain", kestrel::ScriptFormat::Plain},
        {"screenplay", kestrel::ScriptFormat::Screenplay}};
    CLI::App* command = app.add_subcommand("align", "Find where each line of a script begins in a clip");
    command->add_option("SCRIPT", options.script, "Script: plain text, Fountain, or a screenplay as text")
        ->required()
        ->check(CLI::ExistingFile);
    command->add_option("--clip", options.clip, clipHelp)->required();
    command->add_option("--project", options.project,
                        "Name of the project, when a clip name is used in several");
    command->add_option("--range", options.range,
                        "Part of the clip, START-END: 1:30-2:45, or in seconds 90-165");
    command->add_option("--format", options.format, "How the script is written (default: auto)")
        ->transform(CLI::CheckedTransformer(formats).description("{auto,plain,screenplay}"));
    command->add_option("--html", options.html, "Also write a page with script and transcript side by side");
    command->add_flag("--json", options.json, jsonHelp);
    command->footer("Writes line, time, score, the word where the line begins, and the line.\n\n"
                    "Examples:\n  kestrel align scene12.fountain --clip interview.mov\n"
                    "  kestrel align script.txt --clip interview.mov --range 1:30-2:45 --html scene.html");
    command->callback([&run] { run = [] { return kestrel::align(options); }; });
}

int fail(const std::string& message, int code) {
    kestrel::tell("kestrel: " + message);
    return code;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app(
        "Transcribes the sound of media files, finds what is said in them, and lines scripts up with it.",
        "kestrel");
    Run run;
    app.set_version_flag("--version", "kestrel " KSNN_VERSION);
    app.require_subcommand(0, 1); // so that a misspelt one is named, not merely missed
    app.footer("Everything is kept in $KESTREL_HOME, by default kestrel in the user's data folder.\n"
               "`kestrel COMMAND --help` says more, with examples.\n\n"
               "To begin with:\n  kestrel up\n"
               "  kestrel transcribe interview.mov --project Rivers --language en\n"
               "  kestrel search \"the old brige\" --project Rivers");
    for (const auto& add : {addUp, addDown, addStatus, addTranscribe, addSearch, addShow, addAlign})
        add(app, run);
    try {
        app.parse(argc, argv);
        return run ? run() : fail("name a command; `kestrel --help` lists them", kestrel::ExitUsage);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kestrel::ExitFine : kestrel::ExitUsage;
    } catch (const kestrel::UsageError& error) {
        return fail(error.what(), kestrel::ExitUsage);
    } catch (const kestrel::Cancelled& error) {
        return fail(error.what(), kestrel::ExitCancelled);
    } catch (const std::exception& error) {
        return fail(error.what(), kestrel::ExitFailed);
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return runCommandLine(argc, argv);
    } catch (...) { // not even the message could be written
        return kestrel::ExitFailed;
    }
}
