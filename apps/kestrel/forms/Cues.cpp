#include "apps/kestrel/forms/Cues.h"

#include "apps/kestrel/forms/Clauses.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace kestrel {

namespace {

constexpr double kImpossible = std::numeric_limits<double>::infinity();
/// How much earlier a subtitle may come, or later the next one, so that it can be read.
constexpr std::int64_t kLeewayMs = 500;
/// A pause that parts two thoughts, and one that must not be inside a subtitle.
constexpr std::int64_t kPauseMs = 400;
constexpr std::int64_t kSilenceMs = 1500;
/// Not even text that is said at no time at all flashes by faster.
constexpr std::int64_t kFlashMs = 100;
constexpr int kFewColumns = 12;

int columnsOfCharacter(UChar32 character) {
    switch (u_charType(character)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR:
        return 0;
    default:
        break;
    }
    const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

int columnsOfText(const icu::UnicodeString& text) {
    int columns = 0;
    for (int i = 0; i < text.length(); i = text.moveIndex32(i, 1))
        columns += columnsOfCharacter(text.char32At(i));
    return columns;
}

/// A word, or a part of one that is longer than a line.
struct Piece {
    TimedWord word;
    int columns = 0;
    double breakCost = 0.0; ///< Of ending a subtitle or a line after it.
    BreakQuality quality = BreakQuality::Anywhere;
    std::int64_t pauseMs = 0; ///< After it.
};

double costOf(BreakQuality quality) {
    switch (quality) {
    case BreakQuality::Sentence:
        return 0.0;
    case BreakQuality::Clause:
        return 0.4;
    case BreakQuality::BeforeLink:
        return 0.8;
    case BreakQuality::Anywhere:
        return 1.6;
    case BreakQuality::AfterOpener:
        return 2.4;
    }
    return 0.0;
}

/// Cuts a word that is longer than a line where characters, as readers see them, end.
std::vector<TimedWord> cutToLine(const TimedWord& word, int lineLength) {
    const icu::UnicodeString text = icu::UnicodeString::fromUTF8(word.text);
    const int columns = columnsOfText(text);
    if (columns <= lineLength) return {word};
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) return {word};
    characters->setText(text);
    std::vector<TimedWord> parts;
    int begin = 0;
    int before = 0;
    int width = 0;
    const auto timeAt = [&](int column) {
        return word.startMs + (word.endMs - word.startMs) * column / columns;
    };
    const auto cut = [&](int end) {
        TimedWord part{"", parts.empty() && word.spaceBefore, timeAt(before), timeAt(before + width)};
        text.tempSubStringBetween(begin, end).toUTF8String(part.text);
        parts.push_back(std::move(part));
        before += width;
        begin = end;
        width = 0;
    };
    int last = 0;
    for (int next = characters->next(); next != icu::BreakIterator::DONE; next = characters->next()) {
        const int added = columnsOfText(text.tempSubStringBetween(last, next));
        if (width + added > lineLength && last > begin) cut(last);
        width += added;
        last = next;
    }
    cut(text.length());
    return parts;
}

/// Breaks one passage into subtitles and these into lines.
class Breaker {
public:
    Breaker(const Passage& passage, const std::string& prefix, const SubtitleRules& rules)
        : mPassage(passage), mRules(rules) {
        if (!prefix.empty()) {
            const std::int64_t start = passage.words.front().startMs;
            add({prefix, false, start, start});
            mPieces.back().quality = BreakQuality::AfterOpener;
        }
        for (const TimedWord& word : passage.words) {
            TimedWord spaced = word;
            spaced.spaceBefore = word.spaceBefore || (!prefix.empty() && &word == &passage.words.front());
            for (const TimedWord& part : cutToLine(spaced, rules.lineLength))
                add(part);
        }
        judgeBreaks(prefix.empty() ? 0 : 1);
    }

    std::vector<Cue> cues() const {
        const std::size_t count = mPieces.size();
        std::vector<double> best(count + 1, kImpossible);
        std::vector<std::size_t> from(count + 1, 0);
        best[0] = 0.0;
        for (std::size_t begin = 0; begin < count; ++begin) {
            for (std::size_t end = begin + 1; end <= count && linesNeeded(begin, end) <= mRules.lines;
                 ++end) {
                const double cost = best[begin] + cueCost(begin, end);
                if (cost < best[end]) {
                    best[end] = cost;
                    from[end] = begin;
                }
            }
        }
        std::vector<Cue> result;
        for (std::size_t end = count; end > 0; end = from[end])
            result.push_back(cue(from[end], end));
        std::reverse(result.begin(), result.end());
        return result;
    }

private:
    void add(const TimedWord& word) {
        mPieces.push_back({.word = word, .columns = kestrel::columnsOf(word.text)});
        mWidths.push_back(mWidths.back() + mPieces.back().columns + (word.spaceBefore ? 1 : 0));
    }

    void judgeBreaks(std::size_t first) {
        for (std::size_t i = 0; i + 1 < mPieces.size(); ++i) {
            Piece& piece = mPieces[i];
            const TimedWord& next = mPieces[i + 1].word;
            if (i >= first) piece.quality = breakQuality(piece.word.text, next.text, mPassage.language);
            piece.pauseMs = next.startMs - piece.word.endMs;
            piece.breakCost = costOf(piece.quality);
            if (piece.pauseMs >= kPauseMs)
                piece.breakCost = std::min(piece.breakCost, costOf(BreakQuality::Clause));
        }
    }

    int width(std::size_t begin, std::size_t end) const {
        return mWidths[end] - mWidths[begin] - (mPieces[begin].word.spaceBefore ? 1 : 0);
    }

    int linesNeeded(std::size_t begin, std::size_t end) const {
        int lines = 1;
        std::size_t lineBegin = begin;
        for (std::size_t i = begin; i < end; ++i) {
            if (i > lineBegin && width(lineBegin, i + 1) > mRules.lineLength) {
                ++lines;
                lineBegin = i;
            }
        }
        return lines;
    }

    std::int64_t speechEnd(std::size_t begin, std::size_t end) const {
        std::int64_t last = 0;
        for (std::size_t i = begin; i < end; ++i)
            last = std::max(last, mPieces[i].word.endMs);
        return last;
    }

    double cueCost(std::size_t begin, std::size_t end) const {
        const std::int64_t start = mPieces[begin].word.startMs;
        const std::int64_t spoken = speechEnd(begin, end) - start;
        if (spoken > mRules.longestMs && end > begin + 1) return kImpossible;
        double cost = 1.0;
        for (std::size_t i = begin; i + 1 < end; ++i) {
            if (mPieces[i].pauseMs >= kSilenceMs) cost += 2.0;
            if (mPieces[i].quality == BreakQuality::Sentence) cost += 0.3;
        }
        const int columns = width(begin, end);
        if (columns <= kFewColumns) cost += 0.3;
        if (end == mPieces.size()) return cost;
        cost += mPieces[end - 1].breakCost;
        const std::int64_t available =
            std::max(spoken, mPieces[end].word.startMs - start - mRules.shortestGapMs);
        if (available < mRules.shortestMs) cost += 1.5;
        const double speed = columns * 1000.0 / static_cast<double>(std::max<std::int64_t>(available, 1));
        if (speed > mRules.readingSpeed) cost += std::min(2.0 * (speed / mRules.readingSpeed - 1.0), 4.0);
        return cost;
    }

    /// Lines of even length, broken where the text allows it best.
    std::vector<std::string> breakLines(std::size_t begin, std::size_t end) const {
        const auto lines = static_cast<std::size_t>(linesNeeded(begin, end));
        const std::size_t count = end - begin;
        std::vector<std::vector<double>> best(lines + 1, std::vector<double>(count + 1, kImpossible));
        std::vector<std::vector<std::size_t>> from(lines + 1, std::vector<std::size_t>(count + 1, 0));
        best[0][0] = 0.0;
        for (std::size_t line = 1; line <= lines; ++line) {
            for (std::size_t first = 0; first < count; ++first) {
                for (std::size_t last = first + 1; last <= count; ++last) {
                    const double cost = best[line - 1][first] + lineCost(begin + first, begin + last, end);
                    if (cost < best[line][last]) {
                        best[line][last] = cost;
                        from[line][last] = first;
                    }
                }
            }
        }
        std::vector<std::string> result;
        for (std::size_t line = lines, last = count; line > 0; last = from[line][last], --line)
            result.push_back(text(begin + from[line][last], begin + last));
        std::reverse(result.begin(), result.end());
        return result;
    }

    double lineCost(std::size_t begin, std::size_t end, std::size_t endOfCue) const {
        const int columns = width(begin, end);
        if (columns > mRules.lineLength) return kImpossible;
        const double rest = 1.0 - static_cast<double>(columns) / mRules.lineLength;
        return rest * rest + (end == endOfCue ? 0.0 : 0.25 * mPieces[end - 1].breakCost);
    }

    std::string text(std::size_t begin, std::size_t end) const {
        std::vector<TimedWord> words;
        for (std::size_t i = begin; i < end; ++i)
            words.push_back(mPieces[i].word);
        return joined(words);
    }

    Cue cue(std::size_t begin, std::size_t end) const {
        return {mPieces[begin].word.startMs, speechEnd(begin, end), breakLines(begin, end), mPassage.speaker};
    }

    const Passage& mPassage;
    const SubtitleRules& mRules;
    std::vector<Piece> mPieces;
    std::vector<int> mWidths{0};
};

/// Sets the times at which subtitles come and go, from those of the speech.
class Timer {
public:
    explicit Timer(const SubtitleRules& rules) : mRules(rules), mFree(0) {}

    /// @param next Start of the next cue's speech; negative when there is none.
    void place(Cue& cue, std::int64_t next, Subtitles& result) {
        int columns = 0;
        for (const std::string& line : cue.lines)
            columns += kestrel::columnsOf(line);
        const auto reading = static_cast<std::int64_t>(std::ceil(columns * 1000.0 / mRules.readingSpeed));
        const std::int64_t needed =
            std::clamp(reading, mRules.shortestMs, std::max(mRules.shortestMs, mRules.longestMs));
        const std::int64_t spokenTo = cue.endMs;
        cue.startMs = std::max(cue.startMs, mFree);
        if (next < 0) {
            cue.endMs = std::max(spokenTo, cue.startMs + needed);
        } else {
            const std::int64_t dueAway = next - mRules.shortestGapMs;
            const std::int64_t missing = cue.startMs + needed - dueAway;
            cue.startMs -= std::clamp<std::int64_t>(missing, 0, std::min(kLeewayMs, cue.startMs - mFree));
            const std::int64_t read = std::min(cue.startMs + needed, dueAway + kLeewayMs);
            cue.endMs = std::min(std::max(spokenTo, cue.startMs + needed), std::max(dueAway, read));
        }
        cue.endMs = std::min(cue.endMs, cue.startMs + std::max(needed, mRules.longestMs));
        cue.endMs = std::max(cue.endMs, cue.startMs + kFlashMs);
        mFree = cue.endMs + mRules.shortestGapMs;
        if (cue.endMs - cue.startMs < reading) {
            ++result.tooFast;
            result.fastest =
                std::max(result.fastest, columns * 1000.0 / static_cast<double>(cue.endMs - cue.startMs));
        }
    }

private:
    const SubtitleRules& mRules;
    std::int64_t mFree; ///< When the screen may be used again.
};

} // namespace

int columnsOf(const std::string& text) {
    return columnsOfText(icu::UnicodeString::fromUTF8(text));
}

Subtitles subtitlesOf(const std::vector<Passage>& passages, const SubtitleRules& rules, SpeakerNames names) {
    Subtitles result;
    std::string speaker;
    for (const Passage& passage : passages) {
        const bool isAnother = passage.speaker != speaker || result.cues.empty();
        const bool isNamed = rules.speakers && names == SpeakerNames::InText && isAnother;
        speaker = passage.speaker;
        for (Cue& cue : Breaker(passage, isNamed ? speaker + ":" : "", rules).cues())
            result.cues.push_back(std::move(cue));
    }
    // Two voices at once: their cues come in the order in which they begin.
    std::stable_sort(result.cues.begin(), result.cues.end(),
                     [](const Cue& left, const Cue& right) { return left.startMs < right.startMs; });
    Timer timer(rules);
    for (std::size_t i = 0; i < result.cues.size(); ++i)
        timer.place(result.cues[i], i + 1 < result.cues.size() ? result.cues[i + 1].startMs : -1, result);
    if (!rules.speakers) {
        for (Cue& cue : result.cues)
            cue.speaker.clear();
    }
    return result;
}

} // namespace kestrel
