#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/Migration.h"
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

struct MigrateOptions {
    bool yes = false;
    bool json = false;
};

int migrate(const MigrateOptions& options) {
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStoreOfAnyVersion(home);
    const int documents = oldDocuments(store);
    if (documents > 0) {
        confirm(fmt::format("Migrate {} documents? Once all are copied the old index is emptied.", documents),
                options.yes);
        ProgressLine line("migrating");
        migrate(store, terminalCallbacks(line));
        line.done(fmt::format("{} documents, done", documents));
    } else {
        tell("the store holds nothing of an earlier version");
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("documents", documents);
        printResult(document);
    }
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<MigrateOptions>();
    addYesFlag(app, options->yes);
    addJsonFlag(app, options->json);
    app.footer("Needed once, for a store that an earlier version wrote. Until all is copied the old "
               "transcripts stay as\nthey are: after Ctrl-C, or a failure, run the command again.\n\n"
               "Example:\n  kestrel migrate");
    return [options] { return migrate(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "migrate",
                                         "Bring a store of an earlier version up to date", setUp});

} // namespace

} // namespace kestrel
