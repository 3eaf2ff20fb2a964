#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/PhraseSearch.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/desk/Parts.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace kestrel::desk {

namespace {

/// UTF-16 units in which the first `bytes` bytes of a text are written.
std::int32_t unitsOf(const std::string& text, std::size_t bytes) {
    return icu::UnicodeString::fromUTF8(text.substr(0, bytes)).length();
}

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
    object->set("matchBegin", unitsOf(hit.text, hit.matchBegin));
    object->set("matchEnd", unitsOf(hit.text, hit.matchEnd));
    return object;
}

/// The store searches one project at a time; a clip of several projects is found in each.
std::vector<KsNNPhraseHit> findEverywhere(KsNNDatabase& store, KsNNPhraseQuery query, int most) {
    std::vector<KsNNPhraseHit> all;
    std::set<std::tuple<std::string, std::int32_t, std::size_t>> seen;
    for (const KsNNProject& project : storedProjects(store)) {
        query.projectGuid = project.projectGuid;
        for (KsNNPhraseHit& hit : findPhrase(store, query, most)) {
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

void search(Exchange& exchange, Parts& parts) {
    KsNNPhraseQuery query;
    query.text = exchange.parameter("phrase");
    query.projectGuid = exchange.parameter("project");
    query.mediaGuid = exchange.parameter("clip");
    constexpr int kPercent = 100;
    query.threshold = static_cast<float>(exchange.number("threshold", 60, 0, kPercent)) / kPercent;
    const int most = exchange.number("max", 200, 1, 1000);

    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    if (countWords(query.text, "") > 0) {
        parts.stores.with([&](KsNNDatabase& store) {
            SpeakerLookup names(store);
            for (const KsNNPhraseHit& hit : query.projectGuid.empty() ? findEverywhere(store, query, most)
                                                                      : findPhrase(store, query, most))
                list->add(toJson(hit, names));
        });
    }
    auto document = jsonObject();
    document->set("phrase", query.text);
    document->set("hits", list);
    send(exchange, document);
}

} // namespace

void addSearchRoutes(Routes& routes, Parts& parts) {
    routes.add("GET", "/api/search", [&](Exchange& exchange) { search(exchange, parts); });
}

} // namespace kestrel::desk
