#include "apps/kestrel/commands/Command.h"

#include <algorithm>
#include <string_view>
#include <tuple>

namespace kestrel {

namespace {

/// Made at first use: the registrations run before main, in no particular order.
std::vector<Command>& registered() {
    static std::vector<Command> commands;
    return commands;
}

} // namespace

CommandRegistration::CommandRegistration(const Command& command) {
    registered().push_back(command);
}

std::vector<Command> allCommands() {
    std::vector<Command> commands = registered();
    const auto key = [](const Command& command) {
        return std::tuple(command.group, std::string_view(command.name));
    };
    std::sort(commands.begin(), commands.end(),
              [&](const Command& left, const Command& right) { return key(left) < key(right); });
    return commands;
}

const char* headingOf(CommandGroup group) {
    switch (group) {
    case CommandGroup::Services:
        return "Services";
    case CommandGroup::Transcripts:
        return "Transcripts";
    case CommandGroup::Catalogue:
        return "Projects, clips and speakers";
    }
    return "";
}

} // namespace kestrel
