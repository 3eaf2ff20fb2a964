#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/ClipLabels.h"
#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/clips/PhraseSearch.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/FormRequest.h"
#include "apps/kestrel/commands/HitOutput.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/forms/Sources.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace kestrel {

namespace {

struct SearchOptions {
    PhraseQuery query;
    bool byMeaning = false;
    bool json = false;
    FormRequest form;
};

void printJson(const PhraseQuery& query, HitOutput& output) {
    auto document = jsonObject();
    document->set("phrase", query.phrase);
    document->set("project", query.project);
    document->set("threshold", roundedScore(query.threshold));
    document->set("hits", output.toJson());
    printResult(document);
}

void tellNothingFound(const Home& home, const PhraseQuery& query) {
    std::set<std::string> projects;
    for (const CatalogueClip& clip : Catalogue(home).clips())
        projects.insert(clip.project);
    tell(fmt::format(
        "nothing like \"{}\" was found in project \"{}\" (threshold {:.2f}; a lower one finds more)",
        query.phrase, query.project, query.threshold));
    if (!projects.empty() && !projects.contains(query.project))
        tell(fmt::format("projects with clips: {}", fmt::join(projects, ", ")));
}

/// The clip of a hit, with its file where that is known.
Clip clipOf(const KsNNPhraseHit& hit, const KsNNProject& project, const ClipLabels& labels) {
    return {hit.mediaGuid, hit.clipName, labels.path(hit.mediaGuid), project};
}

/// The hits, with the clips that they lie in.
Selection selectionOf(const Home& home, KsNNDatabase& store, const SearchOptions& options,
                      const std::vector<KsNNPhraseHit>& hits) {
    const ClipLabels labels(home);
    const KsNNProject project = findProject(store, options.query.project);
    Selection selection;
    selection.title = options.query.phrase;
    std::map<std::string, std::pair<std::size_t, std::vector<Passage>>> known;
    for (const KsNNPhraseHit& hit : hits) {
        const auto [found, isNew] = known.try_emplace(hit.mediaGuid);
        auto& [position, passages] = found->second;
        if (isNew) {
            const Clip clip = clipOf(hit, project, labels);
            const KsNNDB_STTClipEntry entry = readClip(store, clip);
            position = selection.clips.size();
            passages = passagesOf(entry, speakerNames(store));
            selection.clips.push_back(describeClip(clip, entry, options.form));
        }
        addHit(selection, position, passages, hit);
    }
    return selection;
}

/// Writes times as the time code of each clip's media; of a clip whose media is gone as those of the clip.
class SourceTimes {
public:
    SourceTimes(const Home& home, KsNNDatabase& store, const SearchOptions& options)
        : mStore(store), mOptions(options), mLabels(home),
          mProject(findProject(store, options.query.project)) {}

    std::string operator()(const KsNNPhraseHit& hit, std::int64_t milliseconds) {
        const auto [known, isNew] = mTimes.try_emplace(hit.mediaGuid);
        if (isNew) known->second = labelFor(hit);
        return known->second(milliseconds);
    }

private:
    TimeLabel labelFor(const KsNNPhraseHit& hit) {
        const Clip clip = clipOf(hit, mProject, mLabels);
        try {
            return timeLabelOf(clip, readClip(mStore, clip), mOptions.form);
        } catch (const UsageError&) {
            throw;
        } catch (const Failure& failure) {
            tell(failure.what());
            return timecode;
        }
    }

    KsNNDatabase& mStore;
    const SearchOptions& mOptions;
    ClipLabels mLabels;
    KsNNProject mProject;
    std::map<std::string, TimeLabel> mTimes;
};

int search(const SearchOptions& options) {
    const PhraseQuery& query = options.query;
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    if (countWords(query.phrase, "") == 0)
        throw UsageError(fmt::format("the phrase \"{}\" holds no word", query.phrase));
    std::vector<KsNNPhraseHit> hits = findPhrase(store, home, query);
    if (options.byMeaning) {
        loadMeaningModels(store);
        hits = mixByRank(hits, findMeaning(store, {query.phrase, query.project, query.maxResults}),
                         static_cast<std::size_t>(query.maxResults));
    }
    HitOutput output(store, home, hits);
    if (options.form.isSourceTime) output.setTimeLabel(SourceTimes(home, store, options));
    if (options.json) {
        printJson(query, output);
        return ExitFine;
    }
    if (!options.form.format.empty()) {
        if (hits.empty()) {
            tellNothingFound(home, query);
            return ExitFailed;
        }
        writeOut(options.form, selectionOf(home, store, options, hits));
        return ExitFine;
    }
    output.print();
    if (hits.empty()) tellNothingFound(home, query);
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<SearchOptions>();
    PhraseQuery& query = options->query;
    app.add_option("PHRASE", query.phrase, "What to look for; quote several words")->required();
    addProjectOption(app, query.project)->required();
    app.add_option("--threshold", query.threshold, "Lowest score of a hit; 1: equal but for case and accents")
        ->capture_default_str()
        ->check(CLI::Range(0.0F, 1.0F));
    app.add_option("--max", query.maxResults, "Number of hits to show, best first")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000));
    CLI::Option* meaning =
        app.add_flag("--meaning", options->byMeaning,
                     "Also what means the same, of what `kestrel semantic index` has indexed");
    app.add_option("--clip", query.clip, "Only in this clip: its name, its file or its identifier")
        ->excludes(meaning);
    app.add_option("--speaker", query.speaker, "Only said by this speaker: a name, or a label such as 1")
        ->excludes(meaning);
    CLI::Option* json = addJsonFlag(app, options->json);
    std::set<std::string> names;
    for (const auto& form : forms())
        names.insert(form.first);
    app.add_option("--format", options->form.format, "Write the hits in another form, see below")
        ->check(CLI::IsMember(names).description(""))
        ->excludes(json);
    addTimecodeOption(app, options->form);
    addFormOptions(app, options->form);
    app.footer("Forms:\n" + formList() +
               "\nExamples:\n  kestrel search \"the old brige\" --project Rivers\n"
               "  kestrel search bridge --project Rivers --threshold 0.8 --max 5 --json\n"
               "  kestrel search bridge --project Rivers --format edl --string-out --handles 1 --output "
               "bridge.edl");
    return [options] { return search(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "search",
                                         "Find where a phrase is said, misspellings forgiven", setUp});

} // namespace

} // namespace kestrel
