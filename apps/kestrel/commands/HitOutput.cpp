#include "apps/kestrel/commands/HitOutput.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

std::string matchOf(const KsNNPhraseHit& hit) {
    return hit.text.substr(hit.matchBegin, hit.matchEnd - hit.matchBegin);
}

std::string marked(const KsNNPhraseHit& hit) {
    if (hit.matchBegin == hit.matchEnd) return hit.text;
    return hit.text.substr(0, hit.matchBegin) + emphasised(matchOf(hit)) + hit.text.substr(hit.matchEnd);
}

Poco::JSON::Object::Ptr toJson(const KsNNPhraseHit& hit, SpeakerLookup& names) {
    auto object = jsonObject();
    object->set("clip", hit.mediaGuid);
    object->set("clipName", hit.clipName);
    object->set("timecode", timecode(hit.startMS));
    object->set("startMS", hit.startMS);
    object->set("endMS", hit.endMS);
    object->set("segment", hit.segment);
    object->set("speaker", hit.speakerID);
    object->set("speakerName", names.nameOf(hit.speakerGuid));
    object->set("score", roundedScore(hit.score));
    object->set("text", hit.text);
    object->set("match", matchOf(hit));
    return object;
}

} // namespace

Poco::JSON::Array::Ptr toJson(const std::vector<KsNNPhraseHit>& hits, SpeakerLookup& names) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const KsNNPhraseHit& hit : hits)
        list->add(toJson(hit, names));
    return list;
}

void printHits(const std::vector<KsNNPhraseHit>& hits, SpeakerLookup& names) {
    for (const KsNNPhraseHit& hit : hits) {
        const std::string name = names.nameOf(hit.speakerGuid);
        printResult(fmt::format("{}  {}  {}  {:.2f}\n    {}\n", hit.clipName, timecode(hit.startMS),
                                name.empty() ? "speaker " + hit.speakerID : name, hit.score, marked(hit)));
    }
}

} // namespace kestrel
