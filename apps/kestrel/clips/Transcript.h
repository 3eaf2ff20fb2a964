#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <optional>
#include <string>

namespace kestrel {

/// A clip of the store, in one of its projects.
struct Clip {
    std::string id;
    std::string name;
    std::string path; ///< Where the file lay; empty for a clip that another home transcribed.
    KsNNProject project;
};

/// Reads a clip from the store.
/// @throws Failure when the store holds nothing of it.
KsNNDB_STTClipEntry readClip(KsNNDatabase& store, const Clip& clip);

/// Start of the segment's first word and end of its last; 0 when it has none.
std::int32_t startOf(const KsNNDBEntrySeg& segment);
std::int32_t endOf(const KsNNDBEntrySeg& segment);

/// Bytes [begin, end) of a text.
struct TextSpan {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Where `count` words of the text lie, from word `first` on; nothing when it has no such word. Words are
/// those that the store's matcher counts.
std::optional<TextSpan> wordSpan(const std::string& text, const std::string& language, int first, int count);
int countWords(const std::string& text, const std::string& language);

/// The word of the text at which word `normalWord` of its normal form begins. The two count differently where
/// the normal form drops what parts words: "open-source" is two words, and one in normal form.
int wordOfNormalForm(const std::string& text, const std::string& language, int normalWord);

} // namespace kestrel
