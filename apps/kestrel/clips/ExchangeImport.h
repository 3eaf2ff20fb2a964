#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/clips/ExchangeContents.h"
#include "apps/kestrel/home/Home.h"

#include <Poco/JSON/Object.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

struct ImportRequest {
    std::filesystem::path file;
    std::string project; ///< For clips that belong to no project of the store; empty: a placeholder.
};

/// What an import does to the store.
struct ImportPlan {
    ImportRequest request;
    std::vector<ExchangeClip> clips;
    std::vector<ExchangeClip> fresh;
    std::vector<ExchangeClip> replaced;
    std::vector<ExchangeClip> unfinished; ///< In place of a transcript that was never completed.
    std::vector<ExchangeClip> strangers;  ///< Of all, those that belong to no project of the store.
    SpeakerNames speakers;                ///< Whose names come along.
    std::map<std::string, std::string> projectNames;
    KsNNProject project; ///< The one that the user names, else the placeholder.
    std::size_t segments = 0;
};

/// Name of the project under which clips are filed that belong to none.
std::string placeholderProject();

/// The process works under the file's pass phrase (`applyCredentialsUnder`) when it calls these.
/// @{

/// @throws Failure when the file cannot be read, holds no clip, or one that is being transcribed at this
/// moment.
ImportPlan planImport(KsNNDatabase& store, const ImportRequest& request);
/// Checks every document of the file; nothing changes.
/// @throws Failure that says what is wrong with the file, Cancelled.
void checkImport(KsNNDatabase& store, const ImportPlan& plan, const Callbacks& callbacks);
/// Checks the file and takes its transcripts over. Once the file is checked it is not cancelled any more.
/// @returns Of the clips whose speakers could not be named, the names and reasons; the transcripts are there.
/// @throws Failure that says whether something was changed, Cancelled.
std::vector<std::string> runImport(KsNNDatabase& store, const Home& home, const ImportPlan& plan,
                                   const Callbacks& callbacks);
/// @}

/// For programs.
/// @param unnamed What `runImport` returned.
Poco::JSON::Object::Ptr toJson(const ImportPlan& plan, const std::vector<std::string>& unnamed = {});

} // namespace kestrel
