#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct LeaveOptions {
    std::string clip;
    std::string project;
    bool json = false;
};

int leave(const LeaveOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const Clip clip = findClip(store, home, options.clip, options.project);
    leaveProject(store, home, clip);
    if (options.json) {
        auto document = jsonObject();
        document->set("clip", clip.id);
        document->set("clipName", clip.name);
        document->set("project", clip.project.projectName);
        document->set("projectId", clip.project.projectGuid);
        printResult(document);
    }
    tell(fmt::format("{} has left project \"{}\"", clip.name, clip.project.projectName));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<LeaveOptions>();
    app.add_option("CLIP", options->clip, kClipHelp)->required();
    addProjectOption(app, options->project)->required()->description("Project to take the clip out of");
    addJsonFlag(app, options->json);
    app.footer("The transcript stays for the clip's other projects; `kestrel join` adds it again.\n\n"
               "Example:\n  kestrel leave interview.mov --project Bridges");
    return [options] { return leave(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "leave",
                                         "Take a clip out of one of its projects", setUp});

} // namespace

} // namespace kestrel
