#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace kestrel {

namespace {

/// The index ranks segments roughly, the library scores those that it is given; we look well beyond what we
/// show.
constexpr int kSegmentsToLookAt = 1000;

struct Hit {
    std::string clip;
    std::string clipName;
    std::string speaker;
    std::string text;
    std::int32_t startMs = 0;
    std::int32_t endMs = 0;
    float score = 0.0F;
    std::optional<TextSpan> match;
};

class Searcher {
public:
    Searcher(KsNNDatabase& store, const SearchOptions& options)
        : mStore(store), mOptions(options), mProject(projectIdentifier(options.project)) {}

    std::vector<Hit> run() {
        std::vector<KsNNSearchResults> results;
        check(mStore.Search(mOptions.phrase, mProject, mOptions.threshold, results,
                            std::max(kSegmentsToLookAt, mOptions.maxResults), false),
              mStore, "the search failed");
        std::stable_sort(results.begin(), results.end(), [](const auto& left, const auto& right) {
            return std::tie(right.score, left.mediaGuid, left.startMS) <
                   std::tie(left.score, right.mediaGuid, right.startMS);
        });
        results.resize(std::min(results.size(), static_cast<std::size_t>(mOptions.maxResults)));
        std::vector<Hit> hits;
        hits.reserve(results.size());
        for (const KsNNSearchResults& result : results)
            hits.push_back(describe(result));
        return hits;
    }

private:
    Hit describe(const KsNNSearchResults& result) {
        const KsNNDB_STTClipEntry& entry = clip(result.mediaGuid);
        Hit hit{.clip = result.mediaGuid,
                .clipName = entry.clipName,
                .speaker = "",
                .text = result.text,
                .startMs = static_cast<std::int32_t>(result.startMS),
                .endMs = static_cast<std::int32_t>(result.endMS),
                .score = result.score,
                .match = std::nullopt};
        for (const KsNNDBEntrySeg& segment : entry.segments) {
            // A hit's time is a float: past four hours it is near the word's time, and as a float the same.
            const auto word =
                std::find_if(segment.wordStartsMS.begin(), segment.wordStartsMS.end(),
                             [&](std::int32_t start) { return static_cast<float>(start) == result.startMS; });
            if (segment.transcript != result.text || word == segment.wordStartsMS.end()) continue;
            hit.startMs = *word;
            hit.speaker = segment.speakerID;
            hit.match = wordSpan(segment.transcript, segment.language,
                                 static_cast<int>(word - segment.wordStartsMS.begin()),
                                 countWords(mOptions.phrase, segment.language));
            break;
        }
        return hit;
    }

    const KsNNDB_STTClipEntry& clip(const std::string& mediaGuid) {
        const auto [found, isNew] = mClips.try_emplace(mediaGuid);
        if (isNew) found->second = readClip(mStore, {mediaGuid, mediaGuid, "", mOptions.project, ""});
        return found->second;
    }

    KsNNDatabase& mStore;
    const SearchOptions& mOptions;
    std::string mProject;
    std::map<std::string, KsNNDB_STTClipEntry> mClips;
};

std::string marked(const Hit& hit) {
    if (!hit.match) return hit.text;
    const auto [begin, end] = *hit.match;
    return hit.text.substr(0, begin) + emphasised(hit.text.substr(begin, end - begin)) + hit.text.substr(end);
}

Poco::JSON::Object::Ptr toJson(const Hit& hit) {
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

void printJson(const SearchOptions& options, const std::vector<Hit>& hits) {
    auto document = jsonObject();
    document->set("phrase", options.phrase);
    document->set("project", options.project);
    document->set("threshold", roundedScore(options.threshold));
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const Hit& hit : hits)
        list->add(toJson(hit));
    document->set("hits", list);
    printResult(document);
}

void tellNothingFound(const Home& home, const SearchOptions& options) {
    std::set<std::string> projects;
    for (const CatalogueClip& clip : Catalogue(home).clips())
        projects.insert(clip.project);
    tell(fmt::format(
        "nothing like \"{}\" is said in project \"{}\" (threshold {:.2f}; a lower one finds more)",
        options.phrase, options.project, options.threshold));
    if (!projects.empty() && !projects.contains(options.project))
        tell(fmt::format("projects with clips: {}", fmt::join(projects, ", ")));
}

} // namespace

int search(const SearchOptions& options) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    if (countWords(options.phrase, "") == 0)
        throw UsageError(fmt::format("the phrase \"{}\" holds no word", options.phrase));
    const std::vector<Hit> hits = Searcher(store, options).run();
    if (options.json) {
        printJson(options, hits);
        return ExitFine;
    }
    for (const Hit& hit : hits)
        printResult(fmt::format("{}  {}  speaker {}  {:.2f}\n    {}\n", hit.clipName, timecode(hit.startMs),
                                hit.speaker, hit.score, marked(hit)));
    if (hits.empty()) tellNothingFound(home, options);
    return ExitFine;
}

} // namespace kestrel
