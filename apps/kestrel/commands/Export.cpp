#include "apps/kestrel/clips/ExchangeExport.h"
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

struct ExportOptions {
    ExportRequest request;
    std::filesystem::path passPhraseFile;
};

int exportClips(const ExportOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const ExportPlan plan = planExport(store, home, options.request);
    applyCredentialsUnder(home, readPassPhrase(options.passPhraseFile, true));
    catchInterrupts();
    ProgressLine line(plan.file.filename().string());
    const int segments = runExport(store, plan, terminalCallbacks(line));
    line.done(fmt::format("{} segments of {} clips", segments, plan.clipCount));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ExportOptions>();
    app.add_option("FILE", options->request.file, "Exchange file to write, usually ending in .kst")
        ->required();
    app.add_option("CLIP", options->request.clips, "Clips to export; all of the projects when none is named");
    app.add_option("--project", options->request.projects, "Name of the project; may be given several times")
        ->required()
        ->expected(1)
        ->take_all();
    addPassPhraseOption(app, options->passPhraseFile);
    app.footer(
        "The file is encrypted; whoever imports it needs the same pass phrase.\n\n"
        "Examples:\n  kestrel export rivers.kst --project Rivers\n"
        "  kestrel export scene12.kst interview.mov take2.mov --project Rivers --pass-phrase-file key.txt");
    return [options] { return exportClips(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "export",
                                         "Write transcripts into an encrypted file for another installation",
                                         setUp});

} // namespace

} // namespace kestrel
