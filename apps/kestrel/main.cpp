/// The command-line host: reads the command line and runs the command.

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/terminal/Output.h"
#include "kestrelml/core/KsNNVersion.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

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

int runCommandLine(int argc, char** argv) {
    CLI::App app(
        "Transcribes the audio of media files, finds what is said in them, and aligns scripts with it.",
        "kestrel");
    Run chosen;
    app.set_version_flag("--version", "kestrel " KSNN_VERSION);
    app.require_subcommand(0, 1); // so that a misspelt one is named, not merely missed
    app.footer("Everything is kept in $KESTREL_HOME, by default kestrel in the user's data folder.\n"
               "`kestrel COMMAND --help` says more, with examples.\n\n"
               "To begin with:\n  kestrel up\n"
               "  kestrel transcribe interview.mov --project Rivers --language en\n"
               "  kestrel search \"the old brige\" --project Rivers");
    addCommands(app, chosen);
    try {
        app.parse(argc, argv);
        return chosen ? chosen() : fail("name a command; `kestrel --help` lists them", ExitUsage);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitFine : ExitUsage;
    } catch (const UsageError& error) {
        return fail(error.what(), ExitUsage);
    } catch (const Cancelled& error) {
        return fail(error.what(), ExitCancelled);
    } catch (const std::exception& error) {
        return fail(error.what(), ExitFailed);
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
