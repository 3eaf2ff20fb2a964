#pragma once

#include "kestrelml/store/KsNNDatabase.h"

#include <cstddef>
#include <filesystem>
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
};

/// Lists the clips of an exchange file, in its order. What the library's import refuses may be listed
/// nevertheless.
/// @param store Holds the file's pass phrase.
/// @throws Failure that names the file when it cannot be read or decrypted, or holds something else.
std::vector<ExchangeClip> readExchangeContents(KsNNDatabase& store, const std::filesystem::path& file);

} // namespace kestrel
