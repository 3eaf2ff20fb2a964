#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// What to look for, and where.
struct PhraseQuery {
    std::string phrase;
    std::string project;
    std::string clip;       ///< Only in this clip: name, file or identifier; empty: in all.
    std::string speaker;    ///< Only said by this speaker: name, identifier or label; empty: by anyone.
    float threshold = 0.6F; ///< Lowest score of a hit, 0 to 1.
    int maxResults = 20;
};

/// Finds where the phrase is said, best first.
/// @throws Failure when the store cannot be searched or has no such clip.
std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, const Home& home, const PhraseQuery& query);
/// The same for a query by identifiers.
/// @param across Also where the phrase runs from one segment into the next, which takes many times longer.
std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, KsNNPhraseQuery query, int maxResults,
                                      bool across);

} // namespace kestrel
