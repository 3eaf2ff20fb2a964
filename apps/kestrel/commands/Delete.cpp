#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Confirm.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct DeleteOptions {
    std::vector<std::string> clips;
    std::string project;
    bool everywhere = false;
    bool wholeProject = false;
    bool unfinished = false;
    bool yes = false;
    bool json = false;
};

/// Exactly one kind of deletion must be asked for.
void requireOneKind(const DeleteOptions& options) {
    const int kinds =
        (options.clips.empty() ? 0 : 1) + (options.wholeProject ? 1 : 0) + (options.unfinished ? 1 : 0);
    if (kinds != 1)
        throw UsageError("say what to delete: clips, --whole-project with --project, or --unfinished");
    if (options.wholeProject && options.project.empty())
        throw UsageError("--whole-project needs --project NAME");
    if (!options.clips.empty() && options.project.empty() != options.everywhere)
        throw UsageError("say for whom to delete: --project NAME, or --everywhere for all projects");
}

std::string names(const std::vector<Clip>& clips) {
    std::string text;
    for (const Clip& clip : clips)
        text += (text.empty() ? "" : ", ") + clip.name;
    return text;
}

class Deletion {
public:
    explicit Deletion(const DeleteOptions& options)
        : mOptions(options), mHome(Home::fromEnvironment()), mStore(openStore(mHome)) {}

    Poco::JSON::Object::Ptr run() {
        if (mOptions.unfinished) return removeUnfinished();
        return mOptions.wholeProject ? removeProject() : removeClips();
    }

private:
    Poco::JSON::Object::Ptr removeClips() {
        std::vector<Clip> clips; // all are looked up before the first is deleted
        for (const std::string& text : mOptions.clips)
            clips.push_back(findClip(mStore, mHome, text, mOptions.project));
        const std::string where =
            mOptions.everywhere ? "all projects" : fmt::format("project \"{}\"", mOptions.project);
        confirm(fmt::format("Delete {} from {}? What no other project uses is lost.", names(clips), where),
                mOptions.yes);
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const Clip& clip : clips) {
            const bool deleted = remove(clip);
            auto object = jsonObject();
            object->set("clip", clip.id);
            object->set("clipName", clip.name);
            object->set("deleted", deleted);
            list->add(object);
            tell(fmt::format("{}  {}", clip.name, deleted ? "deleted" : "removed; other projects keep it"));
        }
        auto document = jsonObject();
        document->set("clips", list);
        return document;
    }

    bool remove(const Clip& clip) {
        if (!mOptions.everywhere) return removeFromProject(mStore, mHome, clip);
        deleteEverywhere(mStore, mHome, clip);
        return true;
    }

    Poco::JSON::Object::Ptr removeProject() {
        const KsNNProject project = requireProject(mStore, mOptions.project);
        const std::size_t clips = completeClips(mStore, project.projectGuid).size();
        confirm(fmt::format("Delete project \"{}\" with its {} clips and its speakers? What no other project "
                            "uses is lost.",
                            project.projectName, clips),
                mOptions.yes);
        ProgressLine line(project.projectName);
        const std::size_t removed = deleteProject(mStore, mHome, project, terminalCallbacks(line));
        line.done(fmt::format("{} clips removed", removed));
        auto document = jsonObject();
        document->set("project", project.projectName);
        document->set("projectId", project.projectGuid);
        document->set("removed", removed);
        return document;
    }

    Poco::JSON::Object::Ptr removeUnfinished() {
        confirm("Delete all transcripts that were begun and never completed?", mOptions.yes);
        ProgressLine line("unfinished clips");
        const std::size_t deleted = deleteUnfinished(mStore, mHome, terminalCallbacks(line));
        line.done(fmt::format("{} deleted", deleted));
        auto document = jsonObject();
        document->set("deleted", deleted);
        return document;
    }

    const DeleteOptions& mOptions;
    Home mHome;
    KsNNDatabase mStore;
};

int remove(const DeleteOptions& options) {
    requireOneKind(options);
    catchInterrupts();
    const auto document = Deletion(options).run();
    if (options.json) printResult(document);
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<DeleteOptions>();
    app.add_option("CLIP", options->clips, kClipHelp);
    addProjectOption(app, options->project);
    app.add_flag("--everywhere", options->everywhere, "Delete the clips for all projects");
    app.add_flag("--whole-project", options->wholeProject, "Delete all clips and speakers of the project");
    app.add_flag("--unfinished", options->unfinished,
                 "Delete transcripts that were begun and never completed, in all projects");
    addYesFlag(app, options->yes);
    addJsonFlag(app, options->json);
    app.footer("A clip that another project uses stays for that project. Media files are never touched.\n\n"
               "Examples:\n  kestrel delete interview.mov --project Rivers\n"
               "  kestrel delete --whole-project --project Rivers --yes\n  kestrel delete --unfinished");
    return [options] { return remove(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "delete",
                                         "Delete transcripts: clips, a project, or what was never completed",
                                         setUp});

} // namespace

} // namespace kestrel
