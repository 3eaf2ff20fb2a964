#include "apps/kestrel/clips/TimedWords.h"

#include "kestrelml/store/KsNNDatabase.h"

#include <unicode/uchar.h>

#include <algorithm>

namespace kestrel {

namespace {

std::size_t utf8Length(const icu::UnicodeString& text, int units) {
    std::string utf8;
    return text.tempSubStringBetween(0, units).toUTF8String(utf8).size();
}

struct Span {
    int begin = 0;
    int end = 0;
};

/// Control characters count as white space: no form of output can carry them.
bool isSpace(UChar32 character) {
    return u_isUWhiteSpace(character) || u_iscntrl(character);
}

bool isSpaceOrHyphen(UChar32 character) {
    return isSpace(character) || character == '-';
}

/// Where the pieces begin that lie between separators.
template <typename IsSeparator>
std::vector<int> startsBetween(const icu::UnicodeString& text, IsSeparator isSeparator) {
    std::vector<int> starts;
    bool inside = false;
    for (int i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
        const bool isText = !isSeparator(text.char32At(i));
        if (isText && !inside) starts.push_back(i);
        inside = isText;
    }
    return starts;
}

std::vector<int> matcherStarts(const icu::UnicodeString& text, const std::string& language) {
    std::vector<int> starts;
    std::vector<int> ends;
    KsNNDatabase::get_word_indices_in_string(text, language, starts, ends);
    return starts;
}

/// Where the words begin as the engine counted them, judging by the number of times.
std::vector<int> startsOf(const icu::UnicodeString& text, const KsNNDBEntrySeg& segment) {
    const std::size_t count = segment.wordStartsMS.size();
    std::vector<int> bySpace = startsBetween(text, isSpace);
    if (bySpace.size() == count) return bySpace;
    std::vector<int> byHyphen = startsBetween(text, isSpaceOrHyphen);
    if (byHyphen.size() == count) return byHyphen;
    std::vector<int> byMatcher = matcherStarts(text, segment.language);
    return byMatcher.size() == count ? byMatcher : bySpace;
}

/// Each word with what follows it up to the next.
std::vector<Span> spansOf(const icu::UnicodeString& text, const KsNNDBEntrySeg& segment) {
    const std::vector<int> starts = startsOf(text, segment);
    std::vector<Span> spans;
    for (std::size_t i = 0; i < starts.size(); ++i)
        spans.push_back({i == 0 ? 0 : starts[i], i + 1 < starts.size() ? starts[i + 1] : text.length()});
    return spans;
}

TimedWord wordAt(const icu::UnicodeString& text, Span span) {
    while (span.begin < span.end && isSpace(text.char32At(span.begin)))
        ++span.begin;
    while (span.begin < span.end && isSpace(text.char32At(span.end - 1)))
        --span.end;
    TimedWord word;
    word.span = {utf8Length(text, span.begin), utf8Length(text, span.end)};
    text.tempSubStringBetween(span.begin, span.end).toUTF8String(word.text);
    word.spaceBefore = span.begin > 0 && u_isUWhiteSpace(text.char32At(text.moveIndex32(span.begin, -1)));
    return word;
}

/// Gives every word its time. When text and times count differently, the segment's time is shared out by
/// length, which is never far off within a phrase.
void setTimes(std::vector<TimedWord>& words, const KsNNDBEntrySeg& segment, std::int64_t previousEndMs) {
    const auto& starts = segment.wordStartsMS;
    const auto& ends = segment.wordEndsMS;
    if (starts.empty() || ends.empty()) {
        for (TimedWord& word : words)
            word.startMs = word.endMs = previousEndMs;
        return;
    }
    if (words.size() == starts.size() && words.size() == ends.size()) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i].startMs = starts[i];
            words[i].endMs = ends[i];
            if (i < segment.wordConfidences.size()) words[i].confidence = segment.wordConfidences[i];
        }
        return;
    }
    std::size_t whole = 0;
    for (const TimedWord& word : words)
        whole += word.text.size();
    const std::int64_t begin = starts.front();
    const std::int64_t length = std::max<std::int64_t>(ends.back() - begin, 0);
    std::size_t before = 0;
    for (TimedWord& word : words) {
        word.startMs = begin + length * static_cast<std::int64_t>(before) / static_cast<std::int64_t>(whole);
        before += word.text.size();
        word.endMs = begin + length * static_cast<std::int64_t>(before) / static_cast<std::int64_t>(whole);
    }
}

} // namespace

std::vector<TimedWord> timedWords(const KsNNDBEntrySeg& segment, std::int64_t previousEndMs) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(segment.transcript);
    std::vector<TimedWord> words;
    for (const Span& span : spansOf(text, segment)) {
        TimedWord word = wordAt(text, span);
        if (!word.text.empty()) words.push_back(std::move(word));
    }
    setTimes(words, segment, previousEndMs);
    return words;
}

bool isCountedAlike(const std::string& text, const std::string& language) {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    const std::size_t count = startsBetween(unicode, isSpace).size();
    return startsBetween(unicode, isSpaceOrHyphen).size() == count &&
           matcherStarts(unicode, language).size() == count;
}

std::optional<TimeSpan> timesOf(const KsNNDBEntrySeg& segment, const TextSpan& span) {
    std::optional<TimeSpan> times;
    for (const TimedWord& word : timedWords(segment)) {
        if (word.span.end <= span.begin || word.span.begin >= span.end) continue;
        if (!times) times = TimeSpan{word.startMs, word.endMs};
        times->endMs = word.endMs;
    }
    return times;
}

} // namespace kestrel
