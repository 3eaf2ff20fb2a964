#include "apps/kestrel/forms/Sources.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kestrel {

namespace {

/// A speaker who goes on after a shorter pause has not stopped.
constexpr std::int64_t kLongestPauseInTurnMs = 2000;

} // namespace

Selection transcriptSelection(FormClip clip, const std::vector<Passage>& passages, bool asTurns) {
    Selection selection;
    selection.title = clip.name;
    selection.clips.push_back(std::move(clip));
    for (const Passage& passage : asTurns ? turnsOf(passages, kLongestPauseInTurnMs) : passages)
        selection.items.push_back(itemOf(0, passage));
    return selection;
}

void addHit(Selection& selection, std::size_t clip, const std::vector<Passage>& passages,
            const KsNNPhraseHit& hit) {
    const auto passage = std::find_if(passages.begin(), passages.end(), [&](const Passage& candidate) {
        return candidate.segment == hit.segment;
    });
    if (passage == passages.end()) return;
    Passage spoken = *passage;
    for (auto next = passage + 1; next != passages.end() && spoken.endMs < hit.endMS; ++next)
        append(spoken, *next); // the phrase runs on in the next segment
    FormItem item = itemOf(clip, std::move(spoken));
    item.score = hit.score;
    item.label = hit.text.substr(hit.matchBegin, hit.matchEnd - hit.matchBegin);
    item.note = fmt::format("{} ({:.2f}): {}", item.passage.speaker, hit.score, item.passage.text);
    item.markMs = hit.startMS;
    item.markEndMs = std::max(hit.endMS, hit.startMS);
    selection.items.push_back(std::move(item));
}

Selection scriptSelection(FormClip clip, const std::vector<Passage>& passages,
                          const std::vector<PlacedLine>& lines) {
    Selection selection;
    selection.title = clip.name;
    selection.clips.push_back(std::move(clip));
    for (const PlacedLine& line : lines) {
        if (!line.isFound()) continue;
        const auto spoken = std::find_if(passages.begin(), passages.end(), [&](const Passage& candidate) {
            return candidate.startMs <= line.startMs && line.startMs <= candidate.endMs;
        });
        Passage passage;
        passage.segment = static_cast<std::int32_t>(line.segment);
        passage.text = line.script.text;
        passage.speaker = line.script.character;
        passage.startMs = line.startMs;
        passage.endMs = spoken == passages.end() ? line.startMs : spoken->endMs;
        if (spoken != passages.end()) passage.language = spoken->language;
        for (const PlacedLine& other : lines) {
            if (other.isFound() && other.startMs > line.startMs)
                passage.endMs = std::min<std::int64_t>(passage.endMs, other.startMs);
        }
        FormItem item = itemOf(0, std::move(passage));
        item.label = line.script.text;
        item.note = line.script.character;
        item.score = line.score;
        selection.items.push_back(std::move(item));
    }
    return selection;
}

} // namespace kestrel
