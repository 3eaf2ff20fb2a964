#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/PassPhrase.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

namespace kestrel {

namespace {

/// Documents read by one request: what the export holds in memory at a time.
constexpr int kPageSize = 1000;
/// Clips that one search can ask for by name.
constexpr std::size_t kMostClips = 1000;

struct ExportOptions {
    std::filesystem::path file;
    std::vector<std::string> clips; ///< Empty: all of the projects.
    std::vector<std::string> projects;
    std::filesystem::path passPhraseFile;
};

/// Identifiers of the projects.
/// @throws Failure that lists what there is instead of one that is unknown.
std::vector<std::string> findProjects(KsNNDatabase& store, const std::vector<std::string>& names) {
    std::vector<std::string> identifiers;
    for (const std::string& name : names)
        identifiers.push_back(requireProject(store, name).projectGuid);
    return identifiers;
}

/// An import marks every clip as complete, so that half a transcript would pass for a whole one.
void requireComplete(KsNNDatabase& store, const std::vector<std::string>& projects) {
    for (const std::string& project : projects) {
        KsNNClipQuery query;
        query.projectGuid = project;
        query.unfinishedOnly = true;
        const std::vector<KsNNClipSummary> unfinished = findClips(store, query);
        if (unfinished.empty()) continue;
        throw Failure(fmt::format("{} of the transcripts {} not complete, such as that of {}: run `kestrel "
                                  "transcribe` on the file first, or name the clips to export",
                                  unfinished.size(), unfinished.size() == 1 ? "is" : "are",
                                  unfinished.front().clipName));
    }
}

/// The clips that the user names, all complete and of one project.
std::vector<std::string> chosenClips(const Home& home, KsNNDatabase& store, const ExportOptions& options,
                                     const std::string& project) {
    if (options.projects.size() != 1)
        throw UsageError("clips can be named in one project only; name one --project");
    if (options.clips.size() > kMostClips)
        throw UsageError(fmt::format("{} clips are more than the {} that can be named; export the project",
                                     options.clips.size(), kMostClips));
    const std::vector<std::string> complete = completeClips(store, project);
    std::vector<std::string> found;
    for (const std::string& text : options.clips) {
        const Clip clip = findClip(store, home, text, options.projects.front());
        if (std::find(complete.begin(), complete.end(), clip.id) == complete.end())
            throw Failure(fmt::format("the store holds no complete transcript of {} in project \"{}\"",
                                      clip.name, options.projects.front()));
        found.push_back(clip.id);
    }
    return found;
}

std::size_t countClips(KsNNDatabase& store, const std::vector<std::string>& projects) {
    std::set<std::string> all;
    for (const std::string& project : projects) {
        for (std::string& clip : completeClips(store, project))
            all.insert(std::move(clip));
    }
    return all.size();
}

int exportClips(const ExportOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::vector<std::string> projects = findProjects(store, options.projects);
    std::vector<std::string> clips;
    if (options.clips.empty())
        requireComplete(store, projects);
    else
        clips = chosenClips(home, store, options, projects.front());
    const std::size_t count = clips.empty() ? countClips(store, projects) : clips.size();
    if (count == 0) throw Failure("there is no complete transcript to export");
    applyCredentialsUnder(home, readPassPhrase(options.passPhraseFile, true));

    catchInterrupts();
    ProgressLine line(options.file.filename().string());
    int counter = 0;
    int requests = 0;
    const KsNNProgressCallback progress = [&](int current, int total, const char*) {
        ++requests;
        line.show("exporting", total > 0 ? static_cast<double>(current) / total : 0.0);
        return wasInterrupted() ? KsNN_Error : KsNN_Success;
    };
    const KsNN_ErrorCode code = store.ExportDBContentsToKST(
        clips, projects.front(), projects, options.file.string(), counter, progress, false, false, kPageSize);
    if (wasInterrupted()) throw Cancelled("cancelled; no file was written");
    check(code, store, fmt::format("{} cannot be exported", options.file.string()));
    // Without a pass phrase the library writes an empty file and calls it a success.
    if (!detailOf(store).empty()) throw Failure(detailOf(store));
    line.done(fmt::format("{} segments of {} clips", counter - requests, count));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ExportOptions>();
    app.add_option("FILE", options->file, "Exchange file to write, usually ending in .kst")->required();
    app.add_option("CLIP", options->clips, "Clips to export; all of the projects when none is named");
    app.add_option("--project", options->projects, "Name of the project; may be given several times")
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
