#pragma once

#include "kestrelml/core/KsNNBase.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Bytes [begin, end) of a text.
struct TextSpan {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Milliseconds in a clip.
struct TimeSpan {
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
};

/// A piece of text that stays together, usually a word with its punctuation, and when it is said.
struct TimedWord {
    std::string text;
    bool spaceBefore = true; ///< Scripts that write no spaces have none between words.
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
    TextSpan span{};                 ///< In the segment's transcript.
    std::optional<int> confidence{}; ///< How sure the recogniser is, 0 to 100; nothing when it did not say.
};

/// The words of a segment with their times. Engines count words by white space or as the store does; where
/// the number of times fits neither, the segment's time is shared out by length.
/// @param previousEndMs Time for the words of a segment that has none.
std::vector<TimedWord> timedWords(const KsNNDBEntrySeg& segment, std::int64_t previousEndMs = 0);

/// Whether every way of counting finds the same words in the text.
bool isCountedAlike(const std::string& text, const std::string& language);

/// When the words that overlap a part of the segment's transcript are said; nothing when there is none.
std::optional<TimeSpan> timesOf(const KsNNDBEntrySeg& segment, const TextSpan& span);

} // namespace kestrel
