#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kestrel {

/// A clip in an exchange file.
struct ExchangeClip {
    std::string id;
    std::string name; ///< Empty when the file lacks the clip's first segment.
    std::string language;
    std::size_t segments = 0;
    std::set<std::string> projectIds;
    /// Segments by label and by the speaker whom they are assigned to, empty for nobody.
    std::map<std::string, std::map<std::string, std::vector<int>>> speakers;
};

/// Names of speakers by identifier. Segments bear identifiers only, so that an exchange file has the names on
/// a page of their own.
using SpeakerNames = std::map<std::string, std::string>;

/// What an exchange file holds.
struct ExchangeContents {
    std::vector<ExchangeClip> clips; ///< In the order of the file.
    SpeakerNames speakers;           ///< Those of the clips, as far as the file names them.
};

/// Lists what an exchange file holds, one of its pages in memory at a time. What the library's import refuses
/// may be listed nevertheless.
/// @param store Its process has the file's pass phrase.
/// @throws Failure that names the file when it cannot be read or decrypted, or holds something else.
ExchangeContents readExchangeContents(KsNNDatabase& store, const std::filesystem::path& file);

/// The page of an exchange file that carries the names. It has no documents: a program that does
/// not know this page imports nothing from it.
std::string speakerPage(const SpeakerNames& names);

} // namespace kestrel
