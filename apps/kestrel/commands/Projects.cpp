#include "apps/kestrel/clips/Projects.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct ProjectsOptions {
    bool count = false;
    bool json = false;
};

int projects(const ProjectsOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    std::string text;
    for (const KsNNProject& project : storedProjects(store)) {
        auto object = jsonObject();
        object->set("project", project.projectName);
        object->set("projectId", project.projectGuid);
        std::string count;
        if (options.count) {
            const std::size_t clips = completeClips(store, project.projectGuid).size();
            object->set("clips", clips);
            count = fmt::format("{:6}  ", clips);
        }
        list->add(object);
        text += fmt::format("{}  {}{}\n", project.projectGuid, count, project.projectName);
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("projects", list);
        printResult(document);
    } else {
        printResult(text);
        if (text.empty()) tell("no project has clips yet; `kestrel transcribe` makes the first");
    }
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ProjectsOptions>();
    app.add_flag("--count", options->count, "Also count the complete clips of each project");
    addJsonFlag(app, options->json);
    app.footer(
        "Writes identifier and name.\n\nExamples:\n  kestrel projects\n  kestrel projects --count --json");
    return [options] { return projects(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "projects",
                                         "List the projects that have clips", setUp});

} // namespace

} // namespace kestrel
