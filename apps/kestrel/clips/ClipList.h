#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace kestrel {

/// Which clips to list; what is empty selects nothing.
struct ClipFilter {
    std::string project; ///< Name or identifier.
    std::string language;
    std::string speaker; ///< Name of a speaker, or a label.
    std::string name;    ///< Part of the clip's name, upper and lower case alike.
    bool unfinishedOnly = false;
};

struct ListedClip {
    std::string id;
    std::string name;
    std::string path;                  ///< Where the file lay, when this home transcribed it.
    std::vector<std::string> projects; ///< Names.
    bool isComplete = false;
    std::size_t segments = 0;
    std::int32_t endMs = 0; ///< End of the last word.
    std::set<std::string> languages;
    std::vector<std::string> speakers; ///< Names, or labels of those that have none, in order of appearance.
};

struct ClipListing {
    std::vector<ListedClip> clips; ///< By name.
    /// The store names ten unfinished clips at a time: beside those and the ones that this home began there
    /// may be more.
    bool mayLackUnfinished = false;
};

/// @throws Failure when the store cannot be read or has no such project, Cancelled.
ClipListing listClips(KsNNDatabase& store, const Home& home, const ClipFilter& filter,
                      const Callbacks& callbacks);

/// Identifiers of the complete clips of a project; "ALL" for those of every project.
std::vector<std::string> completeClips(KsNNDatabase& store, const std::string& projectGuid);

/// Clips of a project that were begun and never completed.
struct UnfinishedClip {
    std::string id;
    std::string projectGuid;
};
/// One page of them, which is all that the store gives.
std::vector<UnfinishedClip> unfinishedClips(KsNNDatabase& store);
/// Number of unfinished clips on a page.
inline constexpr std::size_t kUnfinishedPage = 10;

} // namespace kestrel
