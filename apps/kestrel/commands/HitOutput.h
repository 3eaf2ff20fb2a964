#pragma once

#include "apps/kestrel/clips/ClipLabels.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "kestrelml/store/KsNNPhraseSearch.h"

#include <Poco/JSON/Array.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// Writes hits for people and for programs.
class HitOutput {
public:
    /// How a time in the clip of a hit is written.
    using HitTimeLabel = std::function<std::string(const KsNNPhraseHit& hit, std::int64_t milliseconds)>;

    HitOutput(KsNNDatabase& store, const Home& home, const std::vector<KsNNPhraseHit>& hits);
    /// Without this, times are hours, minutes, seconds and milliseconds.
    void setTimeLabel(HitTimeLabel label) { mTimeLabel = std::move(label); }

    Poco::JSON::Array::Ptr toJson();
    /// Prints clip, time of the matched words, speaker, score and the text with the match emphasised.
    void print();

private:
    Poco::JSON::Object::Ptr toJson(const KsNNPhraseHit& hit);

    const std::vector<KsNNPhraseHit>& mHits;
    SpeakerLookup mNames;
    ClipLabels mClips;
    HitTimeLabel mTimeLabel;
};

} // namespace kestrel
