#include "oracles/Oracles.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <tuple>

namespace kestrel_test {
namespace {

using kestrelml::detail::MatchingBlock;
using kestrelml::detail::PhraseMatch;
using kestrelml::detail::WordSpan;

MatchingBlock plainLongest(std::u16string_view a, std::u16string_view b) {
    MatchingBlock best{0, 0, 0};
    std::vector<std::int32_t> runs(b.size() + 1);
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = b.size(); j-- > 0;) {
            runs[j + 1] = a[i] == b[j] ? runs[j] + 1 : 0;
        }
        const auto longest = std::max_element(runs.begin(), runs.end());
        if (*longest > best.size) {
            const auto end = static_cast<std::int32_t>(longest - runs.begin());
            best = {static_cast<std::int32_t>(i) + 1 - *longest, end - *longest, *longest};
        }
    }
    return best;
}

void collect(std::u16string_view a, std::u16string_view b, std::int32_t i, std::int32_t j,
             std::vector<MatchingBlock>& blocks) {
    if (a.empty() || b.empty()) return;
    const MatchingBlock block = plainLongest(a, b);
    if (block.size == 0) return;
    const auto at = static_cast<std::size_t>(block.a);
    const auto bt = static_cast<std::size_t>(block.b);
    const auto size = static_cast<std::size_t>(block.size);
    collect(a.substr(0, at), b.substr(0, bt), i, j, blocks);
    blocks.push_back({i + block.a, j + block.b, block.size});
    collect(a.substr(at + size), b.substr(bt + size), i + block.a + block.size, j + block.b + block.size,
            blocks);
}

std::vector<icu::UnicodeString> normalForms(const icu::Transliterator& transliterator,
                                            const icu::UnicodeString& text,
                                            const std::vector<WordSpan>& spans) {
    std::vector<icu::UnicodeString> words;
    words.reserve(spans.size());
    for (const WordSpan span : spans)
        words.push_back(plainNormalForm(transliterator, text.tempSubStringBetween(span.start, span.end)));
    return words;
}

icu::UnicodeString join(const std::vector<icu::UnicodeString>& words, std::size_t first, std::size_t count) {
    icu::UnicodeString joined;
    for (std::size_t i = first; i < first + count; ++i) {
        if (i > first) joined += u' ';
        joined += words[i];
    }
    return joined;
}

float plainScore(const icu::UnicodeString& a, const icu::UnicodeString& b) {
    const auto distance = static_cast<float>(plainEditDistance(a, b));
    const auto length = static_cast<float>(std::max(a.length(), b.length()));
    const float score = 1.0F - distance / length;
    return score < 0.0F ? 0.0F : score > 1.0F ? 1.0F : score;
}

} // namespace

std::vector<MatchingBlock> plainMatchingBlocks(std::u16string_view a, std::u16string_view b) {
    std::vector<MatchingBlock> found;
    collect(a, b, 0, 0, found);
    std::vector<MatchingBlock> blocks;
    for (const MatchingBlock& block : found) {
        if (!blocks.empty() && blocks.back().a + blocks.back().size == block.a &&
            blocks.back().b + blocks.back().size == block.b) {
            blocks.back().size += block.size;
        } else {
            blocks.push_back(block);
        }
    }
    blocks.push_back({static_cast<std::int32_t>(a.size()), static_cast<std::int32_t>(b.size()), 0});
    return blocks;
}

icu::UnicodeString plainNormalForm(const icu::Transliterator& transliterator, icu::UnicodeString text) {
    transliterator.transliterate(text);
    int32_t start = 0;
    int32_t end = text.length();
    while (start < end && text[start] == u' ')
        ++start;
    while (end > start && text[end - 1] == u' ')
        --end;
    return {text, start, end - start};
}

std::size_t plainEditDistance(const icu::UnicodeString& a, const icu::UnicodeString& b) {
    std::vector<std::size_t> row(static_cast<std::size_t>(b.length()) + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (int32_t i = 0; i < a.length(); ++i) {
        std::size_t diagonal = row[0]++;
        for (int32_t j = 0; j < b.length(); ++j) {
            const auto at = static_cast<std::size_t>(j);
            const std::size_t substituted = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[at + 1];
            row[at + 1] = std::min({substituted, row[at] + 1, row[at + 1] + 1});
        }
    }
    return row.back();
}

std::vector<WordSpan> plainWords(const icu::UnicodeString& text, const std::string& language) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> breaks(
        icu::BreakIterator::createWordInstance(icu::Locale(language.c_str()), status));
    breaks->setText(text);
    std::vector<WordSpan> words;
    for (int32_t start = breaks->first(), end = breaks->next(); end != icu::BreakIterator::DONE;
         start = end, end = breaks->next()) {
        if (breaks->getRuleStatus() != 0) words.push_back({start, end});
    }
    return words;
}

std::vector<PhraseMatch> plainPhraseMatches(const icu::Transliterator& transliterator,
                                            const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                                            const std::string& language, float threshold) {
    const std::vector<WordSpan> spans = plainWords(text, language);
    const std::vector<icu::UnicodeString> words = normalForms(transliterator, text, spans);
    const std::vector<icu::UnicodeString> wanted =
        normalForms(transliterator, phrase, plainWords(phrase, language));
    const icu::UnicodeString whole = join(wanted, 0, wanted.size());
    const auto match = [&](std::size_t first, std::size_t count) {
        PhraseMatch result{static_cast<int>(first), static_cast<int>(count),
                           plainScore(join(words, first, count), whole), 0, 0};
        if (count > 0) {
            result.start = spans[first].start;
            result.end = spans[first + count - 1].end;
        }
        return result;
    };
    std::vector<PhraseMatch> matches;
    if (wanted.size() >= words.size()) {
        const PhraseMatch all = match(0, words.size());
        if (all.score >= threshold) matches = {all};
        return matches;
    }
    const int count = static_cast<int>(wanted.size());
    for (std::size_t i = 0; i + wanted.size() <= words.size(); ++i) {
        const PhraseMatch next = match(i, wanted.size());
        if (!(next.score >= threshold)) continue;
        if (matches.empty() || next.firstWord - matches.back().firstWord >= count) {
            matches.push_back(next);
        } else if (next.score > matches.back().score) {
            matches.back() = next;
        }
    }
    return matches;
}

} // namespace kestrel_test
