#include "apps/kestrel/commands/HitOutput.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/base/Printable.h"
#include "apps/kestrel/base/Timecode.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

std::string matchOf(const KsNNPhraseHit& hit) {
    return hit.text.substr(hit.matchBegin, hit.matchEnd - hit.matchBegin);
}

std::string withEmphasis(const KsNNPhraseHit& hit) {
    if (hit.matchBegin == hit.matchEnd) return hit.text;
    return hit.text.substr(0, hit.matchBegin) + emphasised(matchOf(hit)) + hit.text.substr(hit.matchEnd);
}

} // namespace

HitOutput::HitOutput(KsNNDatabase& store, const Home& home, const std::vector<KsNNPhraseHit>& hits)
    : mHits(hits), mNames(store), mClips(home),
      mTimeLabel([](const KsNNPhraseHit&, std::int64_t milliseconds) { return timecode(milliseconds); }) {
    for (const KsNNPhraseHit& hit : hits)
        mClips.add(hit.mediaGuid, hit.clipName);
}

Poco::JSON::Array::Ptr HitOutput::toJson() {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const KsNNPhraseHit& hit : mHits)
        list->add(toJson(hit));
    return list;
}

Poco::JSON::Object::Ptr HitOutput::toJson(const KsNNPhraseHit& hit) {
    auto object = jsonObject();
    object->set("clip", hit.mediaGuid);
    object->set("clipName", hit.clipName);
    object->set("path", mClips.path(hit.mediaGuid));
    object->set("timecode", mTimeLabel(hit, hit.startMS));
    object->set("startMS", hit.startMS);
    object->set("endMS", hit.endMS);
    object->set("segment", hit.segment);
    object->set("speaker", hit.speakerID);
    object->set("speakerName", mNames.nameOf(hit.speakerGuid));
    object->set("score", roundedScore(hit.score));
    object->set("text", hit.text);
    object->set("match", matchOf(hit));
    return object;
}

void HitOutput::print() {
    for (const KsNNPhraseHit& hit : mHits) {
        const std::string name = mNames.nameOf(hit.speakerGuid);
        std::string when = mTimeLabel(hit, hit.startMS);
        if (hit.endMS > hit.startMS) when += " - " + mTimeLabel(hit, hit.endMS); // a picture has no end
        std::string speaker = name.empty() && !hit.speakerID.empty() ? "speaker " + hit.speakerID : name;
        if (!speaker.empty()) speaker += "  "; // nobody speaks in a picture
        printResult(fmt::format("{}  {}  {}{:.2f}\n    {}\n",
                                printableName(mClips.label(hit.mediaGuid, hit.clipName)), when, speaker,
                                hit.score, withEmphasis(hit)));
    }
}

} // namespace kestrel
