#include "apps/kestrel/forms/Passage.h"

#include "kestrelml/store/KsNNDatabase.h"

#include <unicode/uchar.h>

#include <algorithm>

namespace kestrel {

namespace {

struct Span {
    int begin = 0;
    int end = 0;
};

/// Spans between white space. Control characters count as such: no form of output can carry them.
std::vector<Span> spacedSpans(const icu::UnicodeString& text) {
    std::vector<Span> spans;
    bool inside = false;
    for (int i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
        const UChar32 character = text.char32At(i);
        const bool isText = !u_isUWhiteSpace(character) && !u_iscntrl(character);
        if (isText && !inside) spans.push_back({i, i});
        if (isText) spans.back().end = text.moveIndex32(i, 1);
        inside = isText;
    }
    return spans;
}

/// The words of the store's matcher, each with what follows it up to the next.
std::vector<Span> matcherSpans(const icu::UnicodeString& text, const std::string& language) {
    std::vector<int> starts;
    std::vector<int> ends;
    KsNNDatabase::get_word_indices_in_string(text, language, starts, ends);
    std::vector<Span> spans;
    for (std::size_t i = 0; i < starts.size(); ++i)
        spans.push_back({i == 0 ? 0 : starts[i], i + 1 < starts.size() ? starts[i + 1] : text.length()});
    return spans;
}

TimedWord wordAt(const icu::UnicodeString& text, const Span& span) {
    icu::UnicodeString part = text.tempSubStringBetween(span.begin, span.end);
    part.trim();
    TimedWord word;
    part.toUTF8String(word.text);
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

std::vector<TimedWord> wordsOf(const KsNNDBEntrySeg& segment, std::int64_t previousEndMs) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(segment.transcript);
    std::vector<Span> spans = spacedSpans(text);
    if (spans.size() != segment.wordStartsMS.size()) {
        std::vector<Span> others = matcherSpans(text, segment.language);
        if (others.size() == segment.wordStartsMS.size()) spans = std::move(others);
    }
    std::vector<TimedWord> words;
    for (const Span& span : spans) {
        TimedWord word = wordAt(text, span);
        if (!word.text.empty()) words.push_back(std::move(word));
    }
    setTimes(words, segment, previousEndMs);
    return words;
}

/// Engines that listen to several voices may go back a little; players and readers cannot.
void straighten(std::vector<TimedWord>& words, std::int64_t notBefore) {
    for (TimedWord& word : words) {
        word.startMs = std::max(word.startMs, notBefore);
        word.endMs = std::max(word.endMs, word.startMs);
        notBefore = word.startMs;
    }
}

} // namespace

std::vector<Passage> passagesOf(const KsNNDB_STTClipEntry& entry,
                                const std::function<std::string(const KsNNDBEntrySeg&)>& speakerName) {
    std::vector<Passage> passages;
    std::int64_t previousEndMs = 0;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        Passage passage;
        passage.segment = segment.segment;
        passage.language = segment.language;
        passage.words = wordsOf(segment, previousEndMs);
        if (passage.words.empty()) continue;
        previousEndMs = passage.words.back().endMs;
        passage.text = joined(passage.words);
        passage.speaker = speakerName(segment);
        passages.push_back(std::move(passage));
    }
    std::stable_sort(passages.begin(), passages.end(), [](const Passage& left, const Passage& right) {
        return left.words.front().startMs < right.words.front().startMs;
    });
    std::int64_t last = 0;
    for (Passage& passage : passages) {
        straighten(passage.words, last);
        passage.startMs = last = passage.words.front().startMs;
        for (const TimedWord& word : passage.words)
            passage.endMs = std::max(passage.endMs, word.endMs);
    }
    return passages;
}

std::vector<Passage> turnsOf(const std::vector<Passage>& passages, std::int64_t longestPauseMs) {
    std::vector<Passage> turns;
    for (const Passage& passage : passages) {
        const bool goesOn = !turns.empty() && turns.back().speaker == passage.speaker &&
                            passage.startMs - turns.back().endMs <= longestPauseMs;
        if (!goesOn) {
            turns.push_back(passage);
            continue;
        }
        Passage& turn = turns.back();
        turn.text += " " + passage.text;
        turn.words.insert(turn.words.end(), passage.words.begin(), passage.words.end());
        turn.endMs = std::max(turn.endMs, passage.endMs);
    }
    return turns;
}

std::string joined(const std::vector<TimedWord>& words) {
    std::string text;
    for (const TimedWord& word : words) {
        if (word.spaceBefore && !text.empty()) text += ' ';
        text += word.text;
    }
    return text;
}

} // namespace kestrel
