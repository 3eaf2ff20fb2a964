#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/PhraseSearch.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>
#include <set>

namespace kestrel {

namespace {

struct SearchOptions {
    PhraseQuery query;
    bool json = false;
};

std::string marked(const PhraseHit& hit) {
    if (!hit.match) return hit.text;
    const auto [begin, end] = *hit.match;
    return hit.text.substr(0, begin) + emphasised(hit.text.substr(begin, end - begin)) + hit.text.substr(end);
}

Poco::JSON::Object::Ptr toJson(const PhraseHit& hit) {
    auto object = jsonObject();
    object->set("clip", hit.clip);
    object->set("clipName", hit.clipName);
    object->set("timecode", timecode(hit.startMs));
    object->set("startMS", hit.startMs);
    object->set("endMS", hit.endMs);
    object->set("speaker", hit.speaker);
    object->set("score", roundedScore(hit.score));
    object->set("text", hit.text);
    if (hit.match) object->set("match", hit.text.substr(hit.match->begin, hit.match->end - hit.match->begin));
    return object;
}

void printJson(const PhraseQuery& query, const std::vector<PhraseHit>& hits) {
    auto document = jsonObject();
    document->set("phrase", query.phrase);
    document->set("project", query.project);
    document->set("threshold", roundedScore(query.threshold));
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const PhraseHit& hit : hits)
        list->add(toJson(hit));
    document->set("hits", list);
    printResult(document);
}

void tellNothingFound(const Home& home, const PhraseQuery& query) {
    std::set<std::string> projects;
    for (const CatalogueClip& clip : Catalogue(home).clips())
        projects.insert(clip.project);
    tell(fmt::format(
        "nothing like \"{}\" is said in project \"{}\" (threshold {:.2f}; a lower one finds more)",
        query.phrase, query.project, query.threshold));
    if (!projects.empty() && !projects.contains(query.project))
        tell(fmt::format("projects with clips: {}", fmt::join(projects, ", ")));
}

int search(const SearchOptions& options) {
    const PhraseQuery& query = options.query;
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    if (countWords(query.phrase, "") == 0)
        throw UsageError(fmt::format("the phrase \"{}\" holds no word", query.phrase));
    const std::vector<PhraseHit> hits = findPhrase(store, query);
    if (options.json) {
        printJson(query, hits);
        return ExitFine;
    }
    for (const PhraseHit& hit : hits)
        printResult(fmt::format("{}  {}  speaker {}  {:.2f}\n    {}\n", hit.clipName, timecode(hit.startMs),
                                hit.speaker, hit.score, marked(hit)));
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
    addJsonFlag(app, options->json);
    app.footer("Examples:\n  kestrel search \"the old brige\" --project Rivers\n"
               "  kestrel search bridge --project Rivers --threshold 0.8 --max 5 --json");
    return [options] { return search(*options); };
}

const CommandRegistration registration({CommandGroup::Transcripts, "search",
                                        "Find where a phrase is said, misspellings forgiven", setUp});

} // namespace

} // namespace kestrel
