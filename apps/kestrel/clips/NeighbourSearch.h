#pragma once

#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/text/KsNNPhraseMatcher.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

/// Finds where a phrase runs from one segment into the next, which the store, searching segments one by one,
/// cannot see.
class NeighbourSearch {
public:
    /// @param isWanted Which segments to search; a phrase does not run across others.
    NeighbourSearch(const std::string& phrase, float threshold,
                    std::function<bool(const KsNNDBEntrySeg&)> isWanted);

    /// Adds the places in a clip, of which `entry` may hold some segments only, where the phrase crosses from
    /// segment to segment. Where one overlaps a hit that is there already, the better of the two stays. Text
    /// and match of a new hit are those of all segments that it touches; speaker, language and number are
    /// those of the first.
    void addTo(std::vector<KsNNPhraseHit>& hits, const KsNNDB_STTClipEntry& entry);

private:
    class Stretch;

    void addStretch(std::vector<KsNNPhraseHit>& hits, const Stretch& stretch, const std::string& clipName);

    std::string mPhrase;
    float mThreshold;
    std::function<bool(const KsNNDBEntrySeg&)> mIsWanted;
    std::map<std::string, KsNNPhraseMatcher> mMatchers; ///< By language.
};

} // namespace kestrel
