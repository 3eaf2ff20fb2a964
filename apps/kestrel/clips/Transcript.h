#pragma once

#include "apps/kestrel/clips/TimedWords.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <optional>
#include <string>

namespace kestrel {

/// A clip of the store, in one of its projects.
struct Clip {
    std::string id;
    std::string name;
    std::string path; ///< Of the file, when it was transcribed; empty if another home did that.
    KsNNProject project;
};

/// Reads a clip from the store.
/// @throws Failure when the store holds nothing of it.
KsNNDB_STTClipEntry readClip(KsNNDatabase& store, const Clip& clip);

/// Start of the segment's first word and end of its last; 0 when it has none.
std::int32_t startOf(const KsNNDBEntrySeg& segment);
std::int32_t endOf(const KsNNDBEntrySeg& segment);

/// Number of words of the text, as the store's matcher counts them.
int countWords(const std::string& text, const std::string& language);

/// Where the text has word `normalWord` of its normal form; nothing when that has no such word. The two part
/// words differently where the normal form drops what stands between them: "open-source" is two words, and
/// one in normal form, which then begins at "open".
std::optional<TextSpan> spanOfNormalWord(const std::string& text, const std::string& language,
                                         int normalWord);

} // namespace kestrel
