#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct JoinOptions {
    std::string clip;
    std::string from; ///< Empty: any.
    std::string project;
    bool json = false;
};

int join(const JoinOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const Clip clip = findClip(store, home, options.clip, options.from);
    const KsNNProject project = findProject(store, options.project);
    const bool joined = joinProject(store, home, clip, project);
    Catalogue(home).add({clip.id, clip.name, clip.path, project.projectName, ""});
    if (options.json) {
        auto document = jsonObject();
        document->set("clip", clip.id);
        document->set("clipName", clip.name);
        document->set("project", project.projectName);
        document->set("projectId", project.projectGuid);
        document->set("joined", joined);
        printResult(document);
    }
    tell(fmt::format("{} is {} in project \"{}\"", clip.name, joined ? "now" : "already",
                     project.projectName));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<JoinOptions>();
    app.add_option("CLIP", options->clip, kClipHelp)->required();
    addProjectOption(app, options->project)->required()->description("Project to add the clip to");
    app.add_option("--from", options->from, "Project that has the clip, when its name is used in several")
        ->check(requireName);
    addJsonFlag(app, options->json);
    app.footer("Both projects share the transcript and its speakers. A project is made when there is none of "
               "that name.\n\nExample:\n  kestrel join interview.mov --project Bridges");
    return [options] { return join(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "join", "Add a clip to another project",
                                         setUp});

} // namespace

} // namespace kestrel
