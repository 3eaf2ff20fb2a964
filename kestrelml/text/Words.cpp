#include "kestrelml/text/Words.h"

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

/// Word iterators of one thread, the last used first. Making one costs more than splitting a sentence with
/// it.
class WordIterators {
public:
    icu::BreakIterator& get(const std::string& language) {
        const auto found = std::find_if(mEntries.begin(), mEntries.end(),
                                        [&](const Entry& entry) { return entry.language == language; });
        if (found != mEntries.end()) {
            std::rotate(mEntries.begin(), found, found + 1);
        } else {
            mEntries.insert(mEntries.begin(), Entry{language, createWordIterator(language)});
            if (mEntries.size() > kMost) mEntries.pop_back();
        }
        return *mEntries.front().iterator;
    }

private:
    static constexpr std::size_t kMost = 8;
    struct Entry {
        std::string language;
        std::unique_ptr<icu::BreakIterator> iterator;
    };
    std::vector<Entry> mEntries;
};

} // namespace

std::vector<WordSpan> findWords(const icu::UnicodeString& text, const std::string& language) {
    thread_local WordIterators iterators;
    icu::BreakIterator& iterator = iterators.get(language);
    iterator.setText(text);
    std::vector<WordSpan> words;
    int32_t start = iterator.first();
    for (int32_t end = iterator.next(); end != icu::BreakIterator::DONE; end = iterator.next()) {
        if (iterator.getRuleStatus() != UBRK_WORD_NONE) words.push_back({start, end});
        start = end;
    }
    return words;
}

} // namespace kestrelml::detail
