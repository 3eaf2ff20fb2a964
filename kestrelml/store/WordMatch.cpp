#include "kestrelml/store/WordMatch.h"

#include "kestrelml/store/EditDistance.h"
#include "kestrelml/store/TextNormaliser.h"
#include "kestrelml/store/Words.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kestrelml::detail {
namespace {

/// The words of a text in normal form, joined with single spaces.
struct JoinedWords {
    std::u16string text;
    std::vector<std::size_t> starts;
    std::vector<std::size_t> ends;

    std::size_t count() const { return starts.size(); }
    std::u16string_view run(std::size_t first, std::size_t length) const {
        return std::u16string_view(text).substr(starts[first], ends[first + length - 1] - starts[first]);
    }
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
    const auto score = [&](std::u16string_view candidate) {
        return scoreOf(editDistance(candidate, wanted.text), std::max(candidate.size(), wanted.text.size()));
    };
    if (wanted.count() >= words.count()) {
        const float whole = score(words.text);
        if (whole >= threshold) {
            startWords.push_back(0);
            scores.push_back(whole);
        }
        return;
    }
    if (wanted.count() == 0) return;
    for (std::size_t i = 0; i + wanted.count() <= words.count(); ++i) {
        const float s = score(words.run(i, wanted.count()));
        if (!(s >= threshold)) continue;
        const int start = static_cast<int>(i);
        if (!startWords.empty() && start - startWords.back() < static_cast<int>(wanted.count())) {
            if (s > scores.back()) {
                startWords.back() = start;
                scores.back() = s;
            }
        } else {
            startWords.push_back(start);
            scores.push_back(s);
        }
    }
}

} // namespace kestrelml::detail
