#include "kestrelml/text/Words.h"

#include "kestrelml/text/SimpleWords.h"
#include "kestrelml/text/TextNormaliser.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace kestrelml::detail {
namespace {

std::unique_ptr<icu::BreakIterator> createWordIterator(const std::string& language) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> iterator(
        icu::BreakIterator::createWordInstance(icu::Locale(language.c_str()), status));
    if (U_FAILURE(status) || !iterator) throw std::runtime_error("BreakIterator::createWordInstance failed");
    return iterator;
}

std::vector<WordSpan> splitBy(icu::BreakIterator& iterator, const icu::UnicodeString& text) {
    iterator.setText(text);
    std::vector<WordSpan> words;
    int32_t start = iterator.first();
    for (int32_t end = iterator.next(); end != icu::BreakIterator::DONE; end = iterator.next()) {
        if (iterator.getRuleStatus() != UBRK_WORD_NONE) words.push_back({start, end});
        start = end;
    }
    return words;
}

/// Splits texts of one language.
class WordSplitter {
public:
    explicit WordSplitter(const std::string& language) : mIterator(createWordIterator(language)) {
        // Some languages have their own rules for punctuation inside words.
        const icu::UnicodeString probe(u"a.b a:b a,b a'b a\u00B7b a\u2019b 1.2 1:2 1,2 1;2 1'2 a.1 1.a");
        std::vector<WordSpan> words;
        mHasRootRules = appendSimpleWords(viewOf(probe), words) && words == splitBy(*mIterator, probe);
    }

    std::vector<WordSpan> operator()(const icu::UnicodeString& text) const {
        std::vector<WordSpan> words;
        if (mHasRootRules && appendSimpleWords(viewOf(text), words)) return words;
        return splitBy(*mIterator, text);
    }

private:
    std::unique_ptr<icu::BreakIterator> mIterator;
    bool mHasRootRules;
};

/// Splitters of one thread, most recently used first. Making one costs more than splitting a sentence.
class WordSplitters {
public:
    const WordSplitter& get(const std::string& language) {
        const auto found = std::find_if(mEntries.begin(), mEntries.end(),
                                        [&](const Entry& entry) { return entry.language == language; });
        if (found != mEntries.end()) {
            std::rotate(mEntries.begin(), found, found + 1);
        } else {
            mEntries.insert(mEntries.begin(), Entry{language, WordSplitter(language)});
            if (mEntries.size() > kMost) mEntries.pop_back();
        }
        return mEntries.front().splitter;
    }

private:
    static constexpr std::size_t kMost = 8;
    struct Entry {
        std::string language;
        WordSplitter splitter;
    };
    std::vector<Entry> mEntries;
};

} // namespace

std::vector<WordSpan> findWords(const icu::UnicodeString& text, const std::string& language) {
    thread_local WordSplitters splitters;
    return splitters.get(language)(text);
}

std::size_t utf8Length(const icu::UnicodeString& text, std::int32_t units) {
    std::string bytes;
    return text.tempSubString(0, units).toUTF8String(bytes).size();
}

} // namespace kestrelml::detail
