#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/TextNormaliser.h"
#include "kestrelml/text/Words.h"

using namespace kestrelml::detail;

icu::Transliterator* KsNNDatabase::mTransliterator = nullptr;

void KsNNDatabase::normalizeForSearch(icu::UnicodeString& text) {
    kestrelml::detail::normalizeForSearch(mTransliterator, text);
}

icu::UnicodeString KsNNDatabase::trim(const icu::UnicodeString& text) {
    return trimSpaces(text);
}

void KsNNDatabase::get_words_in_string(const icu::UnicodeString& text, const std::string& language,
                                       std::vector<icu::UnicodeString>& words) {
    for (const WordSpan word : findWords(text, language)) {
        words.emplace_back(text, word.start, word.end - word.start);
    }
}

void KsNNDatabase::get_word_indices_in_string(const icu::UnicodeString& text, const std::string& language,
                                              std::vector<int>& starts, std::vector<int>& ends) {
    for (const WordSpan word : findWords(text, language)) {
        starts.push_back(word.start);
        ends.push_back(word.end);
    }
}

void KsNNDatabase::getNormalizedWords(const icu::UnicodeString& text, const std::string& language,
                                      std::vector<icu::UnicodeString>& words) {
    const std::size_t before = words.size();
    get_words_in_string(text, language, words);
    for (std::size_t i = before; i < words.size(); ++i)
        normalizeForSearch(words[i]);
}

KsNN_ErrorCode KsNNDatabase::findBestStartingWords(const icu::UnicodeString& phrase,
                                                   const icu::UnicodeString& text,
                                                   const std::string& language, float threshold,
                                                   std::vector<int>& startWords, std::vector<float>& scores) {
    for (const PhraseMatch& match :
         PhraseMatcher(mTransliterator, phrase, language).findIn(text, threshold)) {
        startWords.push_back(match.firstWord);
        scores.push_back(match.score);
    }
    return KsNN_Success;
}
