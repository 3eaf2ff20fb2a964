#include "kestrelml/align/FlattenedText.h"

#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

#include <algorithm>

namespace kestrelml::detail {
namespace {

template <typename Place>
const Place* lastAtOrBefore(const std::vector<Place>& places, std::int32_t offset) {
    const auto after = std::upper_bound(places.begin(), places.end(), offset,
                                        [](std::int32_t x, const Place& place) { return x < place.offset; });
    return after == places.begin() ? nullptr : &*(after - 1);
}

} // namespace

FlattenedText::FlattenedText(const KsNNTextLines& lines, const icu::Transliterator* transliterator) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        int lineNumber = 0;
        const char* language = nullptr;
        icu::UnicodeString normal = icu::UnicodeString::fromUTF8(lines.getLineUTF8(i, lineNumber, &language));
        normalizeForSearch(transliterator, normal);
        if (!normal.isEmpty()) append(normal, lineNumber, language);
    }
}

void FlattenedText::append(const icu::UnicodeString& normal, std::int32_t lineNumber, const char* language) {
    if (!mText.isEmpty()) mText.append(u' ');
    const std::int32_t offset = mText.length();
    mLines.push_back({offset, lineNumber, language});
    std::int32_t index = 0;
    for (const WordSpan word : findWords(normal, kRootLanguage)) {
        mWords.push_back({offset + word.start, index++, mLines.size() - 1});
    }
    mText.append(normal);
}

const FlattenedText::Line* FlattenedText::lineAt(std::int32_t offset) const {
    return lastAtOrBefore(mLines, offset);
}

const FlattenedText::Word* FlattenedText::wordAt(std::int32_t offset) const {
    return lastAtOrBefore(mWords, offset);
}

bool FlattenedText::wordBeginsAt(std::int32_t offset) const {
    const Word* word = wordAt(offset);
    return word != nullptr && word->offset == offset;
}

} // namespace kestrelml::detail
