#include "apps/kestrel/forms/Passage.h"

#include <algorithm>

namespace kestrel {

namespace {

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
        passage.words = timedWords(segment, previousEndMs);
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
        append(turns.back(), passage);
    }
    return turns;
}

void append(Passage& passage, const Passage& next) {
    passage.text += " " + next.text;
    passage.words.insert(passage.words.end(), next.words.begin(), next.words.end());
    passage.endMs = std::max(passage.endMs, next.endMs);
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
