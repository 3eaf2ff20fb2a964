#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/HitOutput.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct SemanticOptions {
    MeaningQuery query;
    bool isIndexing = false;
    bool json = false;
};

int indexProject(KsNNDatabase& store, const SemanticOptions& options) {
    catchInterrupts();
    ProgressLine line("indexing by meaning");
    const MeaningIndexing done = indexMeaning(store, options.query.project, terminalCallbacks(line));
    line.done(fmt::format("{} new segments of {} clips", done.segments, done.clips));
    if (options.json) {
        auto document = jsonObject();
        document->set("project", options.query.project);
        document->set("clips", done.clips);
        document->set("segments", done.segments);
        printResult(document);
    }
    return ExitFine;
}

int find(KsNNDatabase& store, const SemanticOptions& options) {
    const std::vector<KsNNPhraseHit> hits = findMeaning(store, options.query);
    HitOutput output(store, Home::fromEnvironment(), hits);
    if (options.json) {
        auto document = jsonObject();
        document->set("query", options.query.text);
        document->set("project", options.query.project);
        document->set("hits", output.toJson());
        printResult(document);
        return ExitFine;
    }
    output.print();
    if (hits.empty())
        tell("nothing is indexed by meaning there yet; `kestrel semantic index --project NAME` does it");
    return ExitFine;
}

int semantic(const SemanticOptions& options) {
    KsNNDatabase store = openStore(Home::fromEnvironment());
    loadMeaningModels(store);
    return options.isIndexing ? indexProject(store, options) : find(store, options);
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<SemanticOptions>();
    MeaningQuery& query = options->query;
    app.add_option("QUERY", query.text, "What is meant, in any of 16 languages; quote several words");
    addProjectOption(app, query.project);
    app.add_option("--max", query.maxResults, "Number of hits to show, best first")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    addJsonFlag(app, options->json);

    CLI::App* index = app.add_subcommand("index", "Make what is said in a project searchable by meaning");
    addProjectOption(*index, query.project);
    addJsonFlag(*index, options->json);
    index->callback([options] { options->isIndexing = true; });

    app.footer("Only what is new since the last `semantic index` is added.\n\nExamples:\n"
               "  kestrel semantic index --project Rivers\n"
               "  kestrel semantic \"somebody is afraid of flying\" --project Rivers");
    return [options] {
        if (options->query.project.empty()) throw UsageError("--project is missing");
        if (!options->isIndexing && options->query.text.empty())
            throw UsageError("QUERY is missing: say what is meant, or `semantic index`");
        return semantic(*options);
    };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "semantic",
                                         "Find what was meant, in whatever words and language", setUp});

} // namespace

} // namespace kestrel
