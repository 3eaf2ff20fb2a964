#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace kestrel {

/// What the command line asked for, ready to run. Results go to standard output, everything else to standard
/// error; returns the exit code, and throws Failure when it can do nothing at all.
using Run = std::function<int()>;

/// The headings under which the help lists the commands, in this order.
enum class CommandGroup { Services, Transcripts, Catalogue };

/// A command, as its source file describes it to the command line.
struct Command {
    CommandGroup group;
    const char* name;
    const char* summary;
    /// Adds the options and the help; returns what runs the command once the options are filled in.
    Run (*setUp)(CLI::App& app);
};

/// Makes a command known for as long as the program runs: each command's source file defines one, and no
/// other file names the command.
class CommandRegistration {
public:
    explicit CommandRegistration(const Command& command);
};

/// All commands, by group and name.
std::vector<Command> allCommands();
const char* headingOf(CommandGroup group);

} // namespace kestrel
