#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>
#include <vector>

namespace kestrel {

/// What to look for by its meaning, and where.
struct MeaningQuery {
    std::string text;
    std::string project; ///< Name or identifier; empty: any.
    int maxResults = 20;
    std::string clip{}; ///< Identifier; empty: any.
};

/// Why nothing can be found by meaning, and what to do about it; empty when it can be.
/// @throws Failure when the store cannot be asked.
std::string whyNoMeaning(KsNNDatabase& store);

/// Loads the models of search by meaning into the store.
/// @throws Failure that says what is missing.
void loadMeaningModels(KsNNDatabase& store);

/// Finds the segments that mean most nearly what the query says, best first, in any language. Hits have no
/// matched words: a match is the whole segment. Frames of pictures have the description as their text.
/// The models have to be loaded.
/// @throws Failure when the store cannot be searched or has no such project.
std::vector<KsNNPhraseHit> findMeaning(KsNNDatabase& store, const MeaningQuery& query);

struct MeaningIndexing {
    std::size_t clips = 0;
    int segments = 0; ///< Written; those that were there before are not counted.
};
/// Makes what is said in the complete clips of a project searchable by meaning. What was done before an
/// interruption stays; the next run goes on behind it. The models have to be loaded.
/// @throws Failure when the store has no such project or cannot be written, Cancelled.
MeaningIndexing indexMeaning(KsNNDatabase& store, const std::string& project, const Callbacks& callbacks);

/// Mixes two lists of hits, each best first, by the places that a segment has in them (reciprocal rank
/// fusion: Cormack, Clarke and Büttcher, 2009). A segment in both keeps the words that were matched.
std::vector<KsNNPhraseHit> mixByRank(const std::vector<KsNNPhraseHit>& byWords,
                                     const std::vector<KsNNPhraseHit>& byMeaning, std::size_t most);

} // namespace kestrel
