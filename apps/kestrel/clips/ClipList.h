#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <Poco/JSON/Object.h>

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
    KsNNClipSummary stored;
    std::string path;                  ///< Of the file, if this home transcribed it.
    std::vector<std::string> speakers; ///< Names, or labels of those that have none.
};

/// The clips of the store, finished or not, by name. No transcript is read.
/// @throws Failure when the store cannot be read or has no such project.
std::vector<ListedClip> listClips(KsNNDatabase& store, const Home& home, const ClipFilter& filter);

/// "complete" or "unfinished".
const char* stateOf(const ListedClip& clip);
/// As `kestrel clips --json` and the desk give it to programs.
Poco::JSON::Object::Ptr toJson(const ListedClip& clip);

bool isInProject(const KsNNClipSummary& clip, const std::string& projectGuid);

/// Clips with their names and projects, without their contents unless the query asks for these.
/// @throws Failure when the store cannot be read.
std::vector<KsNNClipSummary> findClips(KsNNDatabase& store, const KsNNClipQuery& query);

/// Identifiers of the complete clips of a project; "ALL" for those of every project.
std::vector<std::string> completeClips(KsNNDatabase& store, const std::string& projectGuid);

} // namespace kestrel
