#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>

namespace kestrel {

namespace {

struct ClipsOptions {
    ClipFilter filter;
    bool json = false;
};

std::string toText(const ListedClip& clip) {
    const KsNNClipSummary& stored = clip.stored;
    return fmt::format("{}  {:10}  {}  {:5}  {}  ({})\n", stored.mediaGuid.substr(0, 12), stateOf(clip),
                       timecode(stored.endMS), fmt::join(stored.languages, ","), stored.clipName,
                       fmt::join(clip.speakers, ", "));
}

int clips(const ClipsOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::vector<ListedClip> listed = listClips(store, home, options.filter);
    if (options.json) {
        Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
        for (const ListedClip& clip : listed)
            list->add(toJson(clip));
        auto document = jsonObject();
        document->set("clips", list);
        printResult(document);
    } else {
        std::string text;
        for (const ListedClip& clip : listed)
            text += toText(clip);
        printResult(text);
        if (listed.empty()) tell("there is no such clip");
    }
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ClipsOptions>();
    ClipFilter& filter = options->filter;
    addProjectOption(app, filter.project);
    app.add_option("--name", filter.name, "Only clips with this in their name");
    app.add_option("--language", filter.language, "Only clips with segments in this language, such as en");
    app.add_option("--speaker", filter.speaker, "Only clips in which this speaker, or label, speaks");
    app.add_flag("--unfinished", filter.unfinishedOnly, "Only clips whose transcript is not complete");
    addJsonFlag(app, options->json);
    app.footer("Writes identifier, state, end of the last word, languages, name and speakers.\n\n"
               "Examples:\n  kestrel clips --project Rivers\n"
               "  kestrel clips --language fr --speaker Anna --json\n  kestrel clips --unfinished");
    return [options] { return clips(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Catalogue, "clips",
                                         "List clips with state, duration, language and speakers", setUp});

} // namespace

} // namespace kestrel
