#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// What to look for, and where.
struct PhraseQuery {
    std::string phrase;
    std::string project;
    float threshold = 0.6F; ///< Lowest score of a hit, 0 to 1.
    int maxResults = 20;
};

/// Finds where the phrase is said, best first.
/// @throws Failure when the store cannot be searched.
std::vector<KsNNPhraseHit> findPhrase(KsNNDatabase& store, const PhraseQuery& query);

} // namespace kestrel
