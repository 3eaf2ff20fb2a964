#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ExchangeImport.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/PassPhrase.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>

namespace kestrel {

namespace {

struct ImportOptions {
    ImportRequest request;
    std::filesystem::path passPhraseFile;
    bool dryRun = false;
    bool json = false;
};

using Unnamed = std::vector<std::string>; ///< Why the speakers of a clip have no names.

void printJson(const ImportOptions& options, const ImportPlan& plan, const Unnamed& unnamed) {
    auto document = toJson(plan, unnamed);
    document->set("file", options.request.file.string());
    document->set("dryRun", options.dryRun);
    printResult(document);
}

void printText(const ImportOptions& options, const ImportPlan& plan, const Unnamed& unnamed) {
    printResult(fmt::format("{}{} segments of {} clips: {} new, {} replaced\n",
                            options.dryRun ? "would import " : "imported ", plan.segments, plan.clips.size(),
                            plan.fresh.size(), plan.replaced.size() + plan.unfinished.size()));
    for (const ExchangeClip& clip : plan.unfinished)
        tell(fmt::format("{} replaces a transcript that was never completed", clip.name));
    if (!plan.speakers.empty())
        tell(fmt::format("with the names of {} speaker{}", plan.speakers.size(),
                         plan.speakers.size() == 1 ? "" : "s"));
    for (const std::string& reason : unnamed)
        tell(fmt::format("the transcripts are in, but {}", reason));
    if (plan.strangers.empty()) return;
    tell(fmt::format("{} of the clips belong{} to no project of this store: filed under \"{}\"",
                     plan.strangers.size(), plan.strangers.size() == 1 ? "s" : "", plan.project.projectName));
    if (options.request.project.empty())
        tell(fmt::format("`kestrel join --all --from {} --project NAME` moves them into a project of yours",
                         placeholderProject()));
}

int importFile(const ImportOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    applyCredentialsUnder(home, readPassPhrase(options.passPhraseFile, false));
    const ImportPlan plan = planImport(store, options.request);
    catchInterrupts();
    Unnamed unnamed;
    {
        ProgressLine line(options.request.file.filename().string());
        if (options.dryRun)
            checkImport(store, plan, terminalCallbacks(line));
        else
            unnamed = runImport(store, home, plan, terminalCallbacks(line));
    }
    if (options.json)
        printJson(options, plan, unnamed);
    else
        printText(options, plan, unnamed);
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ImportOptions>();
    app.add_option("FILE", options->request.file, "Exchange file, as `kestrel export` writes it")
        ->required()
        ->check(CLI::ExistingFile);
    app.add_option("--project", options->request.project,
                   "Name of the project that takes the clips that belong to no project of this store")
        ->check(requireName);
    addPassPhraseOption(app, options->passPhraseFile);
    app.add_flag("--dry-run", options->dryRun, "Check the whole file and say what would be done");
    addJsonFlag(app, options->json);
    app.footer(
        "A clip that the store has already is replaced. A file that is damaged anywhere changes nothing.\n\n"
        "Examples:\n  kestrel import rivers.kst --project Rivers --dry-run\n"
        "  kestrel import rivers.kst --project Rivers");
    return [options] { return importFile(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "import",
                                         "Take over the transcripts of an exchange file", setUp});

} // namespace

} // namespace kestrel
