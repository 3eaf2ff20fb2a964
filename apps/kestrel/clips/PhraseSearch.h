#pragma once

#include "apps/kestrel/clips/Transcript.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <optional>
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

/// A place where the phrase is said.
struct PhraseHit {
    std::string clip;
    std::string clipName;
    std::string speaker;
    std::string text; ///< Of the whole segment.
    std::int32_t startMs = 0;
    std::int32_t endMs = 0;
    float score = 0.0F;
    std::optional<TextSpan> match; ///< The words of `text` that the phrase fell on.
};

/// Finds where the phrase is said, best first.
/// @throws Failure when the store cannot be searched.
std::vector<PhraseHit> findPhrase(KsNNDatabase& store, const PhraseQuery& query);

} // namespace kestrel
