#include "apps/kestrel/clips/Transcript.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace kestrel {

namespace {

std::size_t utf8Length(const icu::UnicodeString& text, int units) {
    std::string utf8;
    return text.tempSubStringBetween(0, units).toUTF8String(utf8).size();
}

} // namespace

KsNNDB_STTClipEntry readClip(KsNNDatabase& store, const Clip& clip) {
    KsNNDB_STTClipEntry entry;
    check(store.GetWholeClip(clip.id, clip.project.projectGuid, entry, false), store,
          fmt::format("the transcript of {} cannot be read", clip.name));
    if (entry.segments.empty())
        throw Failure(
            fmt::format("the store holds no transcript of {} for project \"{}\"; make one with `kestrel "
                        "transcribe`",
                        clip.name, clip.project.projectName));
    return entry;
}

std::int32_t startOf(const KsNNDBEntrySeg& segment) {
    return segment.wordStartsMS.empty() ? 0 : segment.wordStartsMS.front();
}

std::int32_t endOf(const KsNNDBEntrySeg& segment) {
    return segment.wordEndsMS.empty() ? 0 : segment.wordEndsMS.back();
}

std::optional<TextSpan> spanOfNormalWord(const std::string& text, const std::string& language,
                                         int normalWord) {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    std::vector<int> starts;
    std::vector<int> ends;
    KsNNDatabase::get_word_indices_in_string(unicode, language, starts, ends);
    for (std::size_t word = 0; word < ends.size(); ++word) {
        icu::UnicodeString upToHere = unicode.tempSubStringBetween(0, ends[word]);
        KsNNDatabase::normalizeForSearch(upToHere);
        std::vector<icu::UnicodeString> normal;
        KsNNDatabase::get_words_in_string(upToHere, "", normal);
        if (static_cast<int>(normal.size()) > normalWord)
            return TextSpan{utf8Length(unicode, starts[word]), utf8Length(unicode, ends[word])};
    }
    return std::nullopt;
}

int countWords(const std::string& text, const std::string& language) {
    std::vector<icu::UnicodeString> words;
    KsNNDatabase::get_words_in_string(icu::UnicodeString::fromUTF8(text), language, words);
    return static_cast<int>(words.size());
}

} // namespace kestrel
