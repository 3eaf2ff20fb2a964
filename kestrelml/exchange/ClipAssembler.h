#pragma once

/// @file
/// From the documents of an exchange file to clips. Internal.

#include "kestrelml/core/KsNNBase.h"
#include "kestrelml/store/Operation.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// Projects that imported clips may be filed under, in order of their identifiers.
class KnownProjects {
public:
    /// @param projects Those of the store.
    /// @param own      One more, unless the store has it.
    KnownProjects(std::vector<KsNNProject> projects, const KsNNProject& own);

    /// Those that have the identifier: one, none, or several under different names.
    std::vector<KsNNProject> withGuid(const std::string& guid) const;
    bool contains(const std::string& guid) const { return !withGuid(guid).empty(); }

private:
    std::vector<KsNNProject> mProjects;
};

/// Puts documents together to clips. They come clip by clip.
class ClipAssembler {
public:
    /// Takes a clip that has all its segments; a result other than KsNN_Success ends the work.
    using Finished = std::function<KsNN_ErrorCode(KsNNDB_STTClipEntry& clip)>;

    ClipAssembler(const Operation& operation, const KnownProjects& projects, Finished finished)
        : mOperation(operation), mProjects(projects), mFinished(std::move(finished)) {}

    /// Adds a document. One of another clip finishes the clip before it.
    /// @throws Poco::Exception naming the field that is missing or of the wrong kind, and its value.
    KsNN_ErrorCode add(const Object& document);
    /// Finishes the last clip.
    KsNN_ErrorCode finish();

private:
    KsNN_ErrorCode readClipFields(const Object& document, const std::vector<std::string>& projectGuids);

    const Operation& mOperation;
    const KnownProjects& mProjects;
    Finished mFinished;
    KsNNDB_STTClipEntry mClip;
    std::set<std::string> mSeen; ///< Identifiers of finished clips.
};

} // namespace kestrelml::detail
