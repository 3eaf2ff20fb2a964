#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct JoinOptions {
    std::vector<std::string> clips;
    bool all = false;
    std::string from; ///< Empty: any.
    std::string project;
    bool json = false;
};

std::vector<Clip> completeClipsOf(KsNNDatabase& store, const KsNNProject& project) {
    KsNNClipQuery query;
    query.projectGuid = project.projectGuid;
    std::vector<Clip> clips;
    for (const KsNNClipSummary& clip : findClips(store, query)) {
        if (clip.isComplete)
            clips.push_back({clip.mediaGuid, clip.clipName, "", project});
        else
            tell(fmt::format("{}  not complete, left out", clip.clipName));
    }
    return clips;
}

std::vector<Clip> clipsToJoin(KsNNDatabase& store, const Home& home, const JoinOptions& options) {
    if (options.all) return completeClipsOf(store, requireProject(store, options.from));
    std::vector<Clip> clips; // all are looked up before the first joins
    for (const std::string& text : options.clips)
        clips.push_back(findClip(store, home, text, options.from));
    return clips;
}

int join(const JoinOptions& options) {
    if (options.all == !options.clips.empty()) throw UsageError("name clips, or give --all");
    if (options.all && options.from.empty()) throw UsageError("--all needs --from PROJECT");
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::vector<Clip> clips = clipsToJoin(store, home, options);
    const KsNNProject project = findProject(store, options.project);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const Clip& clip : clips) {
        if (wasInterrupted()) throw Cancelled("cancelled; clips that have joined stay in the project");
        const bool joined = joinProject(store, home, clip, project);
        auto object = jsonObject();
        object->set("clip", clip.id);
        object->set("clipName", clip.name);
        object->set("joined", joined);
        list->add(object);
        tell(fmt::format("{} is {} in project \"{}\"", clip.name, joined ? "now" : "already",
                         project.projectName));
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("project", project.projectName);
        document->set("projectId", project.projectGuid);
        document->set("clips", list);
        printResult(document);
    }
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<JoinOptions>();
    app.add_option("CLIP", options->clips, kClipHelp);
    app.add_flag("--all", options->all, "All complete clips of the project that --from names");
    addProjectOption(app, options->project)->required()->description("Project to add the clips to");
    app.add_option("--from", options->from,
                   "Project that has the clips, when their names are used in several")
        ->check(requireName);
    addJsonFlag(app, options->json);
    app.footer("Both projects share the transcript and its speakers. A project is made when there is none of "
               "that name.\nClips that an import filed under its placeholder project leave that.\n\n"
               "Examples:\n  kestrel join interview.mov --project Bridges\n"
               "  kestrel join --all --from KST_Import_ProjectName --project Rivers");
    return [options] { return join(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "join", "Add clips to another project",
                                         setUp});

} // namespace

} // namespace kestrel
