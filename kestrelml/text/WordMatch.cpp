#include "kestrelml/text/WordMatch.h"

#include "kestrelml/text/EditDistance.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kestrelml::detail {
namespace {

/// The words of a text in normal form, joined with single spaces.
struct JoinedWords {
    std::u16string text;
    std::vector<std::size_t> starts;
    std::vector<std::size_t> ends;

    std::size_t count() const { return starts.size(); }
};

JoinedWords joinWords(const icu::Transliterator* transliterator, const icu::UnicodeString& text,
                      const std::string& language) {
    JoinedWords joined;
    for (const WordSpan word : findWords(text, language)) {
        if (joined.count() > 0) joined.text += u' ';
        joined.starts.push_back(joined.text.size());
        appendNormalized(transliterator,
                         viewOf(text).substr(static_cast<std::size_t>(word.start),
                                             static_cast<std::size_t>(word.end - word.start)),
                         joined.text);
        joined.ends.push_back(joined.text.size());
    }
    return joined;
}

float scoreOf(std::size_t distance, std::size_t length) {
    return std::clamp(1.0F - static_cast<float>(distance) / static_cast<float>(length), 0.0F, 1.0F);
}

/// Scores pieces of a text against a phrase.
class RunScorer {
public:
    RunScorer(std::u16string_view phrase, std::u16string_view text)
        : mPhraseLength(phrase.size()), mDistance(phrase), mText(mDistance.encode(text)),
          mLeast(mDistance.toPiecesEndingAt(mText)) {}

    /// Returns the score of a piece if it is good enough. `goodEnough` must hold for any score above one for
    /// which it holds.
    template <typename GoodEnough>
    std::optional<float> score(std::size_t start, std::size_t end, GoodEnough goodEnough) const {
        const std::size_t length = std::max(end - start, mPhraseLength);
        const auto holds = [&](std::size_t distance) { return goodEnough(scoreOf(distance, length)); };
        // Most pieces are far from the phrase wherever they begin, and need no look of their own.
        if (!holds(mLeast[end])) return std::nullopt;
        const std::size_t most = largestThatHolds(mLeast[end], length, holds);
        const std::size_t distance =
            mDistance.to(EditDistance::EncodedView(mText).subspan(start, end - start), most);
        if (distance > most) return std::nullopt;
        return scoreOf(distance, length);
    }

private:
    /// `holds` is true for `low`, and for no number above one for which it is false.
    template <typename Holds>
    static std::size_t largestThatHolds(std::size_t low, std::size_t high, Holds holds) {
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

    std::size_t mPhraseLength;
    EditDistance mDistance;
    EditDistance::Encoded mText;
    std::vector<std::size_t> mLeast; ///< distance of the nearest piece that ends there
};

} // namespace

void appendNormalizedWords(const icu::Transliterator* transliterator, const icu::UnicodeString& text,
                           const std::string& language, std::vector<icu::UnicodeString>& words) {
    for (const WordSpan word : findWords(text, language)) {
        words.emplace_back(text, word.start, word.end - word.start);
        normalizeForSearch(transliterator, words.back());
    }
}

void findBestStartingWords(const icu::Transliterator* transliterator, const icu::UnicodeString& phrase,
                           const icu::UnicodeString& text, const std::string& language, float threshold,
                           std::vector<int>& startWords, std::vector<float>& scores) {
    const JoinedWords words = joinWords(transliterator, text, language);
    const JoinedWords wanted = joinWords(transliterator, phrase, language);
    RunScorer scorer(wanted.text, words.text);
    if (wanted.count() >= words.count()) {
        const auto score = scorer.score(0, words.text.size(), [&](float s) { return s >= threshold; });
        if (!score) return;
        startWords.push_back(0);
        scores.push_back(*score);
        return;
    }
    if (wanted.count() == 0) return;
    for (std::size_t i = 0; i + wanted.count() <= words.count(); ++i) {
        const int start = static_cast<int>(i);
        const bool overlaps =
            !startWords.empty() && start - startWords.back() < static_cast<int>(wanted.count());
        const auto score = scorer.score(words.starts[i], words.ends[i + wanted.count() - 1], [&](float s) {
            return s >= threshold && (!overlaps || s > scores.back());
        });
        if (!score) continue;
        if (overlaps) {
            startWords.pop_back();
            scores.pop_back();
        }
        startWords.push_back(start);
        scores.push_back(*score);
    }
}

} // namespace kestrelml::detail
