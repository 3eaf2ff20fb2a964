#include "apps/kestrel/clips/NeighbourSearch.h"

#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/clips/TimedWords.h"
#include "apps/kestrel/clips/Transcript.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrel {

namespace {

/// Part of the text of several segments.
struct Place {
    std::string clip;
    std::int32_t firstSegment = 0;
    std::size_t begin = 0; ///< In the first segment's text.
    std::int32_t lastSegment = 0;
    std::size_t end = 0; ///< In the last segment's text.
};

bool overlap(const Place& place, const KsNNPhraseHit& hit) {
    if (hit.mediaGuid != place.clip) return false;
    const bool endsBefore =
        std::pair(hit.segment, hit.matchEnd) <= std::pair(place.firstSegment, place.begin);
    const bool beginsBehind =
        std::pair(hit.segment, hit.matchBegin) >= std::pair(place.lastSegment, place.end);
    return !endsBefore && !beginsBehind;
}

} // namespace

/// Neighbouring segments, read as one text.
class NeighbourSearch::Stretch {
public:
    using Segment = std::vector<KsNNDBEntrySeg>::const_iterator;

    Stretch(Segment begin, Segment end) : mBegin(begin) {
        for (Segment segment = begin; segment != end; ++segment) {
            if (!mText.empty()) mText += ' ';
            mStarts.push_back(mText.size());
            mText += segment->transcript;
        }
    }

    const std::string& text() const { return mText; }
    const std::string& language() const { return mBegin->language; }

    Place placeOf(const KsNNPhraseMatch& match) const {
        const std::size_t first = segmentAt(match.matchBegin);
        const std::size_t last = segmentAt(match.matchEnd - 1);
        return {segment(first).mediaGuid, segment(first).segment, match.matchBegin - mStarts[first],
                segment(last).segment, match.matchEnd - mStarts[last]};
    }

    KsNNPhraseHit describe(const KsNNPhraseMatch& match, const std::string& clipName) const {
        const std::size_t firstPosition = segmentAt(match.matchBegin);
        const std::size_t lastPosition = segmentAt(match.matchEnd - 1);
        const KsNNDBEntrySeg& first = segment(firstPosition);
        const KsNNDBEntrySeg& last = segment(lastPosition);
        const std::size_t textBegin = mStarts[firstPosition];
        KsNNPhraseHit hit;
        hit.mediaGuid = first.mediaGuid;
        hit.clipName = clipName;
        hit.segment = first.segment;
        hit.text = mText.substr(textBegin, mStarts[lastPosition] + last.transcript.size() - textBegin);
        hit.language = first.language;
        hit.speakerID = first.speakerID;
        if (hasSpeaker(first)) hit.speakerGuid = first.speakerGuid;
        hit.wordIndex = match.wordIndex - countWords(mText.substr(0, textBegin), language());
        hit.wordCount = match.wordCount;
        hit.matchBegin = match.matchBegin - textBegin;
        hit.matchEnd = match.matchEnd - textBegin;
        hit.score = match.score;
        if (const auto times = timesOf(first, {hit.matchBegin, first.transcript.size()})) {
            hit.startMS = static_cast<std::int32_t>(times->startMs);
            hit.endMS = static_cast<std::int32_t>(times->endMs);
        }
        if (const auto times = timesOf(last, {0, match.matchEnd - mStarts[lastPosition]}))
            hit.endMS = static_cast<std::int32_t>(times->endMs);
        return hit;
    }

private:
    /// Position of the segment in whose text the byte lies.
    std::size_t segmentAt(std::size_t byte) const {
        const auto next = std::upper_bound(mStarts.begin(), mStarts.end(), byte);
        return static_cast<std::size_t>(next - mStarts.begin()) - 1;
    }

    const KsNNDBEntrySeg& segment(std::size_t position) const {
        return *(mBegin + static_cast<std::ptrdiff_t>(position));
    }

    Segment mBegin;
    std::string mText;
    std::vector<std::size_t> mStarts; ///< Where each segment begins in the text.
};

NeighbourSearch::NeighbourSearch(const std::string& phrase, float threshold,
                                 std::function<bool(const KsNNDBEntrySeg&)> isWanted)
    : mPhrase(phrase), mThreshold(threshold), mIsWanted(std::move(isWanted)) {
}

void NeighbourSearch::addTo(std::vector<KsNNPhraseHit>& hits, const KsNNDB_STTClipEntry& entry) {
    const auto& segments = entry.segments;
    for (auto begin = segments.begin(); begin != segments.end();) {
        begin = std::find_if(begin, segments.end(), mIsWanted);
        auto end = begin;
        for (; end != segments.end() && mIsWanted(*end); ++end)
            if (end != begin && end->segment != std::prev(end)->segment + 1) break;
        if (end - begin > 1) addStretch(hits, Stretch(begin, end), entry.clipName);
        begin = end;
    }
}

void NeighbourSearch::addStretch(std::vector<KsNNPhraseHit>& hits, const Stretch& stretch,
                                 const std::string& clipName) {
    const KsNNPhraseMatcher& matcher =
        mMatchers.try_emplace(stretch.language(), mPhrase, stretch.language()).first->second;
    for (const KsNNPhraseMatch& match : matcher.findIn(stretch.text(), mThreshold)) {
        const Place place = stretch.placeOf(match);
        if (place.firstSegment == place.lastSegment) continue; // the store has found it
        const auto isBetter = [&](const KsNNPhraseHit& hit) {
            return overlap(place, hit) && hit.score >= match.score;
        };
        if (std::any_of(hits.begin(), hits.end(), isBetter)) continue;
        std::erase_if(hits, [&](const KsNNPhraseHit& hit) { return overlap(place, hit); });
        hits.push_back(stretch.describe(match, clipName));
    }
}

} // namespace kestrel
