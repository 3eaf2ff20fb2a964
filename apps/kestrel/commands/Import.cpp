#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ExchangeContents.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/PassPhrase.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string_view>

namespace kestrel {

namespace {

/// Under this project the library files clips whose own projects the store does not know.
constexpr const char* kPlaceholderId = "KST_Import_ProjectGuid";
constexpr const char* kPlaceholderName = "KST_Import_ProjectName";
/// What the library reports when every document has been checked and nothing has been changed yet.
constexpr std::string_view kAboutToChange = "Overwriting existing transcriptions in database";

struct ImportOptions {
    std::filesystem::path file;
    std::string project; ///< Empty: those that the store knows only.
    std::filesystem::path passPhraseFile;
    bool dryRun = false;
    bool json = false;
};

/// What an import does to the store.
struct ImportPlan {
    std::vector<ExchangeClip> clips;
    std::vector<ExchangeClip> fresh;
    std::vector<ExchangeClip> replaced;
    std::vector<ExchangeClip> unfinished; ///< In place of a transcript that was never completed.
    std::vector<ExchangeClip> strangers;  ///< Of all, those that belong to no project of the store.
    std::map<std::string, std::string> projectNames;
    KsNNProject project; ///< The one that the user names, else the placeholder.
    std::size_t segments = 0;
};

ImportPlan planImport(KsNNDatabase& store, const ImportOptions& options) {
    ImportPlan plan;
    plan.clips = readExchangeContents(store, options.file);
    if (plan.clips.empty()) throw Failure(fmt::format("{} holds no clip", options.file.string()));
    std::vector<KsNNProject> projects;
    check(store.GetAllEntries(projects, false), store, "the projects cannot be listed");
    for (const KsNNProject& project : projects)
        plan.projectNames[project.projectGuid] = project.projectName;
    plan.project = options.project.empty() ? KsNNProject{kPlaceholderName, kPlaceholderId}
                                           : findProject(store, options.project);
    plan.projectNames.emplace(plan.project.projectGuid, plan.project.projectName);
    std::map<std::string, bool> isComplete; // of every clip of the store
    for (const KsNNClipSummary& clip : findClips(store, {}))
        isComplete[clip.mediaGuid] = clip.isComplete;
    for (const ExchangeClip& clip : plan.clips) {
        plan.segments += clip.segments;
        const bool isKnown = std::any_of(clip.projectIds.begin(), clip.projectIds.end(), [&](const auto& id) {
            return id != kPlaceholderId && plan.projectNames.contains(id);
        });
        if (!isKnown) plan.strangers.push_back(clip);
        const auto stored = isComplete.find(clip.id);
        if (stored == isComplete.end())
            plan.fresh.push_back(clip);
        else
            (stored->second ? plan.replaced : plan.unfinished).push_back(clip);
    }
    return plan;
}

/// Somebody who transcribes a clip at this moment would write into the imported one.
void requireNoWriter(KsNNDatabase& store, const ImportPlan& plan) {
    for (const ExchangeClip& clip : plan.unfinished) {
        bool locked = false;
        check(store.GetLockState(clip.id, locked, false), store, "the locks cannot be read");
        if (locked)
            throw Failure(
                fmt::format("{} is being transcribed here: import the file when that is done", clip.name));
    }
}

/// The library replaces complete clips only, and would put the new segments beside those of an unfinished
/// one.
void removeUnfinished(KsNNDatabase& store, const ImportPlan& plan) {
    std::vector<std::string> identifiers;
    for (const ExchangeClip& clip : plan.unfinished)
        identifiers.push_back(clip.id);
    if (!identifiers.empty())
        check(store.HardDeleteEntries(identifiers, false), store, "unfinished transcripts cannot be removed");
}

void runImport(KsNNDatabase& store, const ImportOptions& options, const ImportPlan& plan) {
    catchInterrupts();
    ProgressLine line(options.file.filename().string());
    bool isChecked = false;
    // One object does one operation at a time.
    KsNNDatabase helper = store;
    const KsNNProgressCallback progress = [&](int current, int total, const char* text) {
        if (!isChecked && wasInterrupted()) return KsNN_Error;
        line.show(isChecked ? "writing" : "checking", static_cast<double>(current) / std::max(total, 1));
        if (isChecked || text != kAboutToChange) return KsNN_Success;
        isChecked = true;
        if (options.dryRun) return KsNN_Error;
        // The service would make a missing index itself, but without the store's mapping.
        check(helper.CreateIndex(KsNNDatabase::getTranscriptIndex(), false), helper,
              "the store cannot be set up");
        removeUnfinished(helper, plan);
        return KsNN_Success;
    };
    const KsNN_ErrorCode code = store.ImportDBContentsFromKST(options.file.string(), plan.project.projectGuid,
                                                              plan.project.projectName, progress, false);
    if (!isChecked && wasInterrupted()) throw Cancelled("cancelled; nothing was changed");
    if (isChecked && options.dryRun) return;
    check(code, store,
          fmt::format("{} cannot be imported{}", options.file.string(),
                      isChecked ? "; clips that were to be replaced may be missing now, import the file again"
                                : ", nothing was changed"));
}

/// The library files clips that belong to no project of the store under a placeholder, whatever project is
/// named: who names one wants them there.
void adoptStrangers(KsNNDatabase& store, const Home& home, const ImportPlan& plan) {
    const KsNNProject placeholder{kPlaceholderName, kPlaceholderId};
    for (const ExchangeClip& clip : plan.strangers) {
        joinProject(store, home, {clip.id, clip.name, "", placeholder}, plan.project);
        Catalogue(home).add({clip.id, clip.name, "", plan.project.projectName, clip.language});
    }
}

void addToCatalogue(const Home& home, const ImportPlan& plan) {
    const Catalogue catalogue(home);
    const std::vector<CatalogueClip> before = catalogue.clips();
    for (const ExchangeClip& clip : plan.clips) {
        for (const std::string& id : clip.projectIds) {
            const auto project = plan.projectNames.find(id);
            if (project == plan.projectNames.end() || id == kPlaceholderId) continue;
            const bool isListed = std::any_of(before.begin(), before.end(), [&](const CatalogueClip& known) {
                return known.id == clip.id && known.project == project->second;
            });
            if (!isListed) catalogue.add({clip.id, clip.name, "", project->second, clip.language});
        }
    }
}

Poco::JSON::Array::Ptr names(const std::vector<ExchangeClip>& clips) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const ExchangeClip& clip : clips) {
        auto object = jsonObject();
        object->set("clip", clip.id);
        object->set("clipName", clip.name);
        object->set("segments", clip.segments);
        list->add(object);
    }
    return list;
}

void printJson(const ImportOptions& options, const ImportPlan& plan) {
    auto document = jsonObject();
    document->set("file", options.file.string());
    document->set("dryRun", options.dryRun);
    document->set("segments", plan.segments);
    document->set("new", names(plan.fresh));
    document->set("replaced", names(plan.replaced));
    document->set("unfinishedReplaced", names(plan.unfinished));
    document->set("project", plan.project.projectName);
    document->set("filedUnderProject", names(plan.strangers));
    printResult(document);
}

void printText(const ImportOptions& options, const ImportPlan& plan) {
    printResult(fmt::format("{}{} segments of {} clips: {} new, {} replaced\n",
                            options.dryRun ? "would import " : "imported ", plan.segments, plan.clips.size(),
                            plan.fresh.size(), plan.replaced.size() + plan.unfinished.size()));
    for (const ExchangeClip& clip : plan.unfinished)
        tell(fmt::format("{} replaces a transcript that was never completed", clip.name));
    if (plan.strangers.empty()) return;
    tell(fmt::format("{} of them belong{} to no project of this store: filed under \"{}\"",
                     plan.strangers.size(), plan.strangers.size() == 1 ? "s" : "", plan.project.projectName));
    if (options.project.empty())
        tell(fmt::format("`kestrel join --all --from {} --project NAME` moves them into a project of yours",
                         kPlaceholderName));
}

int importFile(const ImportOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    applyCredentialsUnder(home, readPassPhrase(options.passPhraseFile, false));
    const ImportPlan plan = planImport(store, options);
    requireNoWriter(store, plan);
    runImport(store, options, plan);
    if (!options.dryRun) {
        addToCatalogue(home, plan);
        if (!options.project.empty()) adoptStrangers(store, home, plan);
    }
    if (options.json)
        printJson(options, plan);
    else
        printText(options, plan);
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ImportOptions>();
    app.add_option("FILE", options->file, "Exchange file, as `kestrel export` writes it")
        ->required()
        ->check(CLI::ExistingFile);
    app.add_option("--project", options->project,
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
