#include "kestrelml/text/PhraseMatcher.h"

#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace kestrelml::detail {

/// The words of a text in normal form, joined with single spaces.
struct PhraseMatcher::NormalWords {
    struct Word {
        WordSpan span;     ///< in the text
        std::size_t start; ///< in the joined text
        std::size_t end;
    };

    NormalWords(const icu::Transliterator* transliterator, const icu::UnicodeString& text,
                const std::string& language) {
        const std::vector<WordSpan> spans = findWords(text, language);
        words.reserve(spans.size());
        joined.reserve(static_cast<std::size_t>(text.length()));
        for (const WordSpan span : spans) {
            if (!words.empty()) joined += u' ';
            const std::size_t start = joined.size();
            appendNormalized(transliterator,
                             viewOf(text).substr(static_cast<std::size_t>(span.start),
                                                 static_cast<std::size_t>(span.end - span.start)),
                             joined);
            words.push_back({span, start, joined.size()});
        }
    }

    std::vector<Word> words;
    std::u16string joined;
};

namespace {

/// For two empty strings the result is not a number, which reaches no threshold.
float scoreOf(std::size_t distance, std::size_t length) {
    return std::clamp(1.0F - static_cast<float>(distance) / static_cast<float>(length), 0.0F, 1.0F);
}

/// `holds` is true for `low`, and for no number above one for which it is false.
template <typename Holds>
std::size_t largestThatHolds(std::size_t low, std::size_t high, Holds holds) {
    while (low < high) {
        const std::size_t middle = high - (high - low) / 2;
        if (holds(middle)) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    return low;
}

constexpr std::size_t kFewRuns = 2; // compared one by one, without searching the whole text first

} // namespace

/// Scores pieces of one text.
class PhraseMatcher::RunScorer {
public:
    RunScorer(const PhraseMatcher& matcher, std::u16string_view text, std::size_t runs)
        : mDistance(matcher.mDistance), mPhraseLength(matcher.mLength), mText(mDistance.encode(text)) {
        if (runs > kFewRuns) mLeast = mDistance.toPiecesEndingAt(mText);
    }

    /// Returns the score of a piece if it is good enough. `goodEnough` must hold for any score above one for
    /// which it holds.
    template <typename GoodEnough>
    std::optional<float> score(std::size_t start, std::size_t end, GoodEnough goodEnough) const {
        const std::size_t length = std::max(end - start, mPhraseLength);
        const auto holds = [&](std::size_t distance) { return goodEnough(scoreOf(distance, length)); };
        // Most pieces are far from the phrase, wherever they begin, and need no comparison.
        const std::size_t least = mLeast.empty() ? 0 : mLeast[end];
        if (!holds(least)) return std::nullopt;
        const std::size_t most = largestThatHolds(least, length, holds);
        const std::size_t distance =
            mDistance.to(EditDistance::EncodedView(mText).subspan(start, end - start), most);
        if (distance > most) return std::nullopt;
        return scoreOf(distance, length);
    }

private:
    const EditDistance& mDistance;
    std::size_t mPhraseLength;
    EditDistance::Encoded mText;
    std::vector<std::size_t> mLeast; ///< distance of the nearest piece that ends there
};

PhraseMatcher::PhraseMatcher(const icu::Transliterator* transliterator, const icu::UnicodeString& phrase,
                             std::string language)
    : PhraseMatcher(transliterator, NormalWords(transliterator, phrase, language), std::move(language)) {
}

PhraseMatcher::PhraseMatcher(const icu::Transliterator* transliterator, const NormalWords& phrase,
                             std::string language)
    : mTransliterator(transliterator), mLanguage(std::move(language)), mWordCount(phrase.words.size()),
      mLength(phrase.joined.size()), mDistance(phrase.joined) {
}

std::vector<PhraseMatch> PhraseMatcher::findIn(const icu::UnicodeString& text, float threshold) const {
    if (mWordCount == 0) return {};
    const NormalWords normal(mTransliterator, text, mLanguage);
    if (normal.words.empty()) {
        // The empty text is as unlike the phrase as can be, unless nothing is left of the phrase either.
        const float score = scoreOf(mLength, mLength);
        return score >= threshold ? std::vector<PhraseMatch>{{0, 0, score, 0, 0}}
                                  : std::vector<PhraseMatch>{};
    }
    const std::size_t count = std::min(mWordCount, normal.words.size());
    const std::size_t runs = normal.words.size() - count + 1;
    const RunScorer scorer(*this, normal.joined, runs);
    std::vector<PhraseMatch> matches;
    for (std::size_t i = 0; i < runs; ++i) {
        const NormalWords::Word& first = normal.words[i];
        const NormalWords::Word& last = normal.words[i + count - 1];
        const bool overlaps =
            !matches.empty() && i - static_cast<std::size_t>(matches.back().firstWord) < count;
        const auto score = scorer.score(first.start, last.end, [&](float s) {
            return s >= threshold && (!overlaps || s > matches.back().score);
        });
        if (!score) continue;
        if (overlaps) matches.pop_back();
        matches.push_back(
            {static_cast<int>(i), static_cast<int>(count), *score, first.span.start, last.span.end});
    }
    return matches;
}

} // namespace kestrelml::detail
