/// The command-line host: reads the command line and runs the command.

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/terminal/Output.h"
#include "kestrelml/core/KsNNVersion.h"
#include "kestrelml/text/KsNNPhraseMatcher.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <csignal>

namespace {

using namespace kestrel;

int fail(const std::string& message, int code) {
    tell("kestrel: " + message);
    return code;
}

void addCommands(CLI::App& app, Run& chosen) {
    for (const Command& command : allCommands()) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        sub->group(headingOf(command.group));
        sub->callback([&chosen, run = command.setUp(*sub)] { chosen = run; });
    }
}

/// The command that is spelt most like the word; empty when none is.
std::string nearestCommand(const std::string& word) {
    constexpr float kAlike = 0.5F;
    const KsNNPhraseMatcher matcher(word, "en");
    std::string nearest;
    float best = 0.0F;
    for (const Command& command : allCommands()) {
        for (const KsNNPhraseMatch& match : matcher.findIn(command.name, kAlike)) {
            if (match.score > best) nearest = command.name;
            best = std::max(best, match.score);
        }
    }
    return nearest;
}

int failUnknownCommand(const std::string& word) {
    const std::string nearest = nearestCommand(word);
    return fail(fmt::format("there is no command \"{}\"{}; `kestrel --help` lists all", word,
                            nearest.empty() ? "" : fmt::format(", do you mean \"{}\"?", nearest)),
                ExitUsage);
}

/// What is not UTF-8 could not be stored or shown.
void requireUtf8(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!isUtf8(argv[i]))
            throw UsageError(
                fmt::format("\"{}\" is not UTF-8: rename the file, or correct the argument", argv[i]));
    }
}

int runCommandLine(int argc, char** argv) {
    CLI::App app(
        "Transcribes the audio of media files, finds what is said in them, and aligns scripts with it.",
        "kestrel");
    Run chosen;
    app.set_version_flag("--version", "kestrel " KSNN_VERSION);
    app.require_subcommand(0, 1); // an unknown one is an extra argument then, which the error names
    app.footer("Everything is kept in $KESTREL_HOME, by default kestrel in the user's data folder.\n"
               "`kestrel COMMAND --help` says more, with examples.\n\n"
               "To begin with:\n  kestrel up\n"
               "  kestrel transcribe interview.mov --project Rivers --language en\n"
               "  kestrel search \"the old brige\" --project Rivers");
    addCommands(app, chosen);
    try {
        requireUtf8(argc, argv);
        app.parse(argc, argv);
        if (chosen) return chosen();
        printResult(app.help());
        return ExitFine;
    } catch (const CLI::ExtrasError& error) {
        if (app.get_subcommands().empty() && !app.remaining().front().starts_with("-"))
            return failUnknownCommand(app.remaining().front());
        return fail(error.what(), ExitUsage);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitFine : ExitUsage;
    } catch (const UsageError& error) {
        return fail(error.what(), ExitUsage);
    } catch (const Cancelled& error) {
        return fail(error.what(), ExitCancelled);
    } catch (const OutputClosed&) {
        return ExitFine;
    } catch (const std::exception& error) {
        return fail(error.what(), ExitFailed);
    }
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is told by the write
    try {
        return runCommandLine(argc, argv);
    } catch (...) { // not even the message could be written
        return kestrel::ExitFailed;
    }
}
