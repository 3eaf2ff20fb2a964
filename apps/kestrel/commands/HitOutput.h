#pragma once

#include "apps/kestrel/clips/SpeakerLookup.h"
#include "kestrelml/store/KsNNPhraseSearch.h"

#include <Poco/JSON/Array.h>

#include <vector>

/// Hits as commands write them.
namespace kestrel {

Poco::JSON::Array::Ptr toJson(const std::vector<KsNNPhraseHit>& hits, SpeakerLookup& names);
/// Clip, time code, speaker, score and the text with the match marked.
void printHits(const std::vector<KsNNPhraseHit>& hits, SpeakerLookup& names);

} // namespace kestrel
