#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Confirm.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct UnlockOptions {
    std::string clip;
    bool all = false;
    bool yes = false;
    bool json = false;
};

/// A clip may be locked before anything of it is stored: then only its file or its whole identifier names it.
std::string identifierOf(KsNNDatabase& store, const Home& home, const std::string& text) {
    std::error_code error;
    if (std::filesystem::is_regular_file(text, error)) return clipIdentifier(text);
    bool locked = false;
    if (store.GetLockState(text, locked, false) == KsNN_Success && locked) return text;
    return findClip(store, home, text, "").id;
}

std::vector<std::string> unlockOne(KsNNDatabase& store, const Home& home, const UnlockOptions& options) {
    const std::string clip = identifierOf(store, home, options.clip);
    confirm(fmt::format("Release the lock of {}? A program that is writing the clip must have ended.", clip),
            options.yes);
    if (unlock(store, home, clip)) return {clip};
    return {};
}

int unlock(const UnlockOptions& options) {
    if (options.all == !options.clip.empty()) throw UsageError("name a clip, or give --all");
    catchInterrupts();
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    if (options.all)
        confirm("Release the locks of all clips? Programs that are writing clips must have ended.",
                options.yes);
    const std::vector<std::string> released =
        options.all ? unlockAll(store, home, terminalCallbacks()) : unlockOne(store, home, options);
    if (options.json) {
        auto document = jsonObject();
        document->set("released", jsonArray(released));
        printResult(document);
    }
    for (const std::string& clip : released)
        tell(fmt::format("{}  unlocked", clip));
    if (released.empty()) tell("no lock to release");
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<UnlockOptions>();
    app.add_option("CLIP", options->clip, kClipHelp);
    app.add_flag("--all", options->all, "Release the locks of all clips");
    addYesFlag(app, options->yes);
    addJsonFlag(app, options->json);
    app.footer("While a program writes a clip it keeps the clip locked; one that crashed leaves the lock "
               "behind.\n\nExamples:\n  kestrel unlock interview.mov\n  kestrel unlock --all --yes");
    return [options] { return unlock(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "unlock",
                                         "Release locks that programs left behind", setUp});

} // namespace

} // namespace kestrel
