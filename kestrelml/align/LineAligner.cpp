#include "kestrelml/align/LineAligner.h"

#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

#include <algorithm>
#include <optional>

namespace kestrelml::detail {
namespace {

constexpr float kLowestScore = 0.5F;

PositionMap comparePositions(const FlattenedText& script, const FlattenedText& transcript) {
    return PositionMap(toOpcodes(findMatchingBlocks(viewOf(script.text()), viewOf(transcript.text()))));
}

/// Where word `number` begins. The phrase matcher counted words by the rules of a language, this counts them
/// by the root rules, so there may be fewer; the end of the text counts as one more word.
std::optional<std::int32_t> offsetOfWord(const icu::UnicodeString& text, std::size_t number) {
    if (number == 0) return 0;
    const std::vector<WordSpan> words = findWords(text, kRootLanguage);
    if (number < words.size()) return words[number].start;
    if (number == words.size()) return text.length();
    return std::nullopt;
}

} // namespace

LineAligner::LineAligner(const FlattenedText& script, const FlattenedText& transcript,
                         const icu::Transliterator* transliterator)
    : mScript(script), mTranscript(transcript), mTransliterator(transliterator),
      mPositions(comparePositions(script, transcript)) {
}

LineAligner::Result LineAligner::align(std::size_t index) const {
    Result result;
    const std::int32_t start = mScript.lines()[index].offset;
    const std::int32_t rough = mPositions(start);
    if (!mScript.wordBeginsAt(start) || rough == PositionMap::kNowhere) return result;

    const std::int32_t end = endOfLine(index);
    const std::int32_t roughEnd = mPositions(end);
    std::int32_t length = end - start;
    mScript.text().extract(start, length, result.scriptExcerpt);
    if (roughEnd != PositionMap::kNowhere) length = std::max(length, roughEnd - rough);
    mTranscript.text().extract(rough, length, result.transcriptExcerpt);
    result.item = place(result, rough);
    return result;
}

/// The last unit of a line is left out: for all lines but the last it is the space between lines.
std::int32_t LineAligner::endOfLine(std::size_t index) const {
    const auto& lines = mScript.lines();
    return (index + 1 < lines.size() ? lines[index + 1].offset : mScript.text().length()) - 1;
}

KsNNAlignmentItem LineAligner::place(const Result& excerpts, std::int32_t rough) const {
    const KsNNAlignmentItem notFound(0, 0, 0.0F, 0);
    const PhraseMatcher matcher(mTransliterator, excerpts.scriptExcerpt, languageAt(rough));
    const std::vector<PhraseMatch> matches = matcher.findIn(excerpts.transcriptExcerpt, kLowestScore);
    if (matches.empty()) return notFound;
    const auto best = // the first of equals
        std::max_element(matches.begin(), matches.end(),
                         [](const PhraseMatch& x, const PhraseMatch& y) { return x.score < y.score; });

    const auto offset = offsetOfWord(excerpts.transcriptExcerpt, static_cast<std::size_t>(best->firstWord));
    if (!offset) return notFound;
    const FlattenedText::Line* line = mTranscript.lineAt(rough + *offset);
    const FlattenedText::Word* word = mTranscript.wordAt(rough + *offset);
    if (line == nullptr || word == nullptr) return notFound;
    return {line->lineNumber, word->index, best->score, 0};
}

const std::string& LineAligner::languageAt(std::int32_t offset) const {
    static const std::string none;
    const FlattenedText::Word* word = mTranscript.wordAt(offset);
    return word == nullptr ? none : mTranscript.lines()[word->line].language;
}

} // namespace kestrelml::detail
