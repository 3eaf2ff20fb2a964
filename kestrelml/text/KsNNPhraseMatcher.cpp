#include "kestrelml/text/KsNNPhraseMatcher.h"

#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

using namespace kestrelml::detail;

namespace {

const icu::Transliterator* searchTransliterator() {
    static const std::unique_ptr<icu::Transliterator> transliterator(createSearchTransliterator());
    return transliterator.get();
}

} // namespace

KsNNPhraseMatcher::KsNNPhraseMatcher(const std::string& phrase, const std::string& language)
    : mMatcher(std::make_shared<PhraseMatcher>(searchTransliterator(), icu::UnicodeString::fromUTF8(phrase),
                                               language)) {
}

std::vector<KsNNPhraseMatch> KsNNPhraseMatcher::findIn(const std::string& text, float threshold) const {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    std::vector<KsNNPhraseMatch> matches;
    for (const PhraseMatch& match : mMatcher->findIn(unicode, threshold))
        matches.push_back({match.firstWord, match.wordCount, utf8Length(unicode, match.start),
                           utf8Length(unicode, match.end), match.score});
    return matches;
}
