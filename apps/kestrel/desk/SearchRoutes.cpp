#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/clips/PhraseSearch.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/desk/Parts.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace kestrel::desk {

namespace {

Poco::JSON::Object::Ptr toJson(const KsNNPhraseHit& hit, SpeakerLookup& names) {
    const std::string name = names.nameOf(hit.speakerGuid);
    auto object = jsonObject();
    object->set("clip", hit.mediaGuid);
    object->set("clipName", hit.clipName);
    object->set("segment", hit.segment);
    object->set("startMS", hit.startMS);
    object->set("endMS", hit.endMS);
    object->set("speaker", name.empty() && !hit.speakerID.empty() ? "Speaker " + hit.speakerID : name);
    object->set("language", hit.language);
    object->set("score", roundedScore(hit.score));
    object->set("text", hit.text);
    object->set("matchBegin", utf16Length(std::string_view(hit.text).substr(0, hit.matchBegin)));
    object->set("matchEnd", utf16Length(std::string_view(hit.text).substr(0, hit.matchEnd)));
    return object;
}

/// The store searches one project at a time; a clip of several projects is found in each.
std::vector<KsNNPhraseHit> findEverywhere(KsNNDatabase& store, KsNNPhraseQuery query, int most, bool across) {
    std::vector<KsNNPhraseHit> all;
    std::set<std::tuple<std::string, std::int32_t, std::size_t>> seen;
    for (const KsNNProject& project : storedProjects(store)) {
        query.projectGuid = project.projectGuid;
        for (KsNNPhraseHit& hit : findPhrase(store, query, most, across)) {
            if (seen.emplace(hit.mediaGuid, hit.segment, hit.matchBegin).second)
                all.push_back(std::move(hit));
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const KsNNPhraseHit& left, const KsNNPhraseHit& right) {
        return left.score > right.score;
    });
    all.resize(std::min(all.size(), static_cast<std::size_t>(most)));
    return all;
}

struct SearchRequest {
    KsNNPhraseQuery query; ///< Without a project: in all.
    int most = 0;
    bool byMeaning = false;
    bool across = false; ///< Also from one segment into the next.
};

SearchRequest requestOf(const Exchange& exchange) {
    SearchRequest request;
    request.query.text = exchange.parameter("phrase");
    request.query.projectGuid = exchange.parameter("project");
    request.query.mediaGuid = exchange.parameter("clip");
    constexpr int kPercent = 100;
    request.query.threshold = static_cast<float>(exchange.number("threshold", 60, 0, kPercent)) / kPercent;
    request.most = exchange.number("max", 200, 1, 1000);
    const std::string by = exchange.parameter("by");
    if (!by.empty() && by != "spelling" && by != "meaning")
        throw HttpError(400, fmt::format("by must be spelling or meaning, not {}", by));
    request.byMeaning = by == "meaning";
    request.across = exchange.number("across", 0, 0, 1) == 1;
    return request;
}

std::vector<KsNNPhraseHit> findByWords(Parts& parts, const SearchRequest& request) {
    return parts.stores.with([&](KsNNDatabase& store) {
        return request.query.projectGuid.empty()
                   ? findEverywhere(store, request.query, request.most, request.across)
                   : findPhrase(store, request.query, request.most, request.across);
    });
}

/// What means the same, mixed with what is spelt alike; of one clip only, when the query names it.
std::vector<KsNNPhraseHit> findByMeaning(Parts& parts, const SearchRequest& request) {
    constexpr int kMostMeant = 50; // what comes after has little to do with the query
    const KsNNPhraseQuery& query = request.query;
    const std::vector<KsNNPhraseHit> meant = parts.stores.withMeaning([&](KsNNDatabase& store) {
        return findMeaning(
            store, {query.text, query.projectGuid, std::min(request.most, kMostMeant), query.mediaGuid});
    });
    return mixByRank(findByWords(parts, request), meant, static_cast<std::size_t>(request.most));
}

std::vector<KsNNPhraseHit> find(Parts& parts, const SearchRequest& request) {
    if (countWords(request.query.text, "") == 0) return {};
    const auto work = [&] {
        return request.byMeaning ? findByMeaning(parts, request) : findByWords(parts, request);
    };
    return request.across ? parts.acrossSearch.run(work) : work();
}

void search(Exchange& exchange, Parts& parts) {
    const SearchRequest request = requestOf(exchange);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    const std::vector<KsNNPhraseHit> hits = find(parts, request);
    parts.stores.with([&](KsNNDatabase& store) {
        SpeakerLookup names(store);
        for (const KsNNPhraseHit& hit : hits)
            list->add(toJson(hit, names));
    });
    auto document = jsonObject();
    document->set("phrase", request.query.text);
    document->set("hits", list);
    send(exchange, document);
}

} // namespace

void addSearchRoutes(Routes& routes, Parts& parts) {
    routes.add("GET", "/api/search", [&](Exchange& exchange) { search(exchange, parts); });
}

} // namespace kestrel::desk
