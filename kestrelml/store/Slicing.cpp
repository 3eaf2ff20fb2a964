#include "kestrelml/store/Slicing.h"

#include "kestrelml/store/KsNNDatabase.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>

namespace kestrelml::detail {
namespace {

struct WordPosition {
    std::size_t segment;
    std::size_t word;
};

struct KeptWords {
    WordPosition first;
    WordPosition last;
};

/// Finds the words to keep and makes their times relative to the range, in one pass: a word is judged by its
/// original times.
class RangeScan {
public:
    RangeScan(int startMS, int endMS) : mStart(startMS), mEnd(endMS) {}

    std::optional<KeptWords> run(std::vector<KsNNDBEntrySeg>& segments) {
        for (std::size_t s = 0; s < segments.size(); ++s) {
            KsNNDBEntrySeg& seg = segments[s];
            const std::size_t count = std::min(seg.wordStartsMS.size(), seg.wordEndsMS.size());
            for (std::size_t w = 0; w < count; ++w) {
                if (!visit({s, w}, seg.wordStartsMS[w], seg.wordEndsMS[w])) return kept();
            }
        }
        return kept();
    }

private:
    /// False ends the scan.
    bool visit(WordPosition position, std::int32_t& start, std::int32_t& end) {
        const auto half = static_cast<std::int64_t>(static_cast<double>(std::int64_t{end} - start) * 0.5);
        if (!mFirst) {
            if (end - mStart < half) return true;
            mFirst = position;
        }
        if (mEnd - start < half) return false;
        start = relative(start);
        end = relative(end);
        mLast = position;
        return true;
    }

    std::int32_t relative(std::int32_t time) const {
        return static_cast<std::int32_t>(
            std::clamp<std::int64_t>(time - mStart, 0, std::max<std::int64_t>(mEnd - mStart, 0)));
    }

    std::optional<KeptWords> kept() const {
        if (!mFirst || !mLast) return std::nullopt;
        return KeptWords{*mFirst, *mLast};
    }

    std::int64_t mStart;
    std::int64_t mEnd;
    std::optional<WordPosition> mFirst;
    std::optional<WordPosition> mLast;
};

struct Words {
    icu::UnicodeString text;
    std::vector<int> starts;
    std::vector<int> ends;
};

Words wordsOf(const KsNNDBEntrySeg& seg) {
    Words words;
    words.text = icu::UnicodeString::fromUTF8(seg.transcript);
    KsNNDatabase::get_word_indices_in_string(words.text, seg.language, words.starts, words.ends);
    return words;
}

void setTranscript(KsNNDBEntrySeg& seg, const icu::UnicodeString& text) {
    seg.transcript.clear();
    text.toUTF8String(seg.transcript);
}

/// A transcript with fewer words than times cannot be cut at the word, and stays whole.
void dropWordsAfter(std::size_t last, KsNNDBEntrySeg& seg) {
    const Words words = wordsOf(seg);
    if (last >= words.ends.size()) return;
    setTranscript(seg, words.text.tempSubString(0, words.ends[last]));
    seg.wordStartsMS.resize(last + 1);
    seg.wordEndsMS.resize(last + 1);
    if (last < seg.wordConfidences.size()) seg.wordConfidences.resize(last + 1);
}

void dropWordsBefore(std::size_t first, KsNNDBEntrySeg& seg) {
    const Words words = wordsOf(seg);
    if (first >= words.starts.size()) return;
    setTranscript(seg, words.text.tempSubString(words.starts[first]));
    const auto count = static_cast<std::ptrdiff_t>(first);
    seg.wordStartsMS.erase(seg.wordStartsMS.begin(), std::next(seg.wordStartsMS.begin(), count));
    seg.wordEndsMS.erase(seg.wordEndsMS.begin(), std::next(seg.wordEndsMS.begin(), count));
    if (first < seg.wordConfidences.size())
        seg.wordConfidences.erase(seg.wordConfidences.begin(), std::next(seg.wordConfidences.begin(), count));
}

KsNNDBEntrySeg emptySegmentLike(const KsNNDBEntrySeg& original) {
    KsNNDBEntrySeg seg;
    seg.segment = 0;
    seg.mediaGuid = original.mediaGuid;
    seg.projectGuid = original.projectGuid;
    seg.transcript.clear();
    return seg;
}

} // namespace

void slice(int startMS, int endMS, KsNNDB_STTClipEntry& entry) {
    std::vector<KsNNDBEntrySeg>& segments = entry.segments;
    if (segments.empty()) return;
    const std::optional<KeptWords> kept = RangeScan(startMS, endMS).run(segments);
    if (!kept) {
        segments = {emptySegmentLike(segments.front())};
        return;
    }
    segments.resize(kept->last.segment + 1);
    dropWordsAfter(kept->last.word, segments.back());
    segments.erase(segments.begin(),
                   std::next(segments.begin(), static_cast<std::ptrdiff_t>(kept->first.segment)));
    dropWordsBefore(kept->first.word, segments.front());
}

} // namespace kestrelml::detail
