#include "kestrelml/core/Credentials.h"
#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <sstream>
#include <utility>

using namespace kestrelml::detail;

namespace {

constexpr const char* kNoSpeaker = "N/A";

/// The documents of version 1 by clip, in each clip by project, in each project by segment.
Object::Ptr everyDocumentInOrder() {
    return object({{"query", everything()},
                   {"sort", ascending({exact(field::kMediaGuid).c_str(), exact(field::kProjectGuid).c_str(),
                                       field::kSegment})}});
}

/// Makes clips of version 2 from documents of version 1 in that order. Version 1 has a clip once for each of
/// its projects: the segments of the first project stay, of the others only the names.
class ClipUpgrade {
public:
    using TakeClip = std::function<void(KsNNDB_STTClipEntry&)>;

    /// @param take Receives each clip when it is whole.
    explicit ClipUpgrade(TakeClip take) : mTake(std::move(take)) {}

    /// Returns false for a document whose words have not as many ends as starts.
    [[nodiscard]] bool add(const Object& document) {
        const std::string projectGuid = projectGuidVersion1Of(document);
        if (!mMediaGuid || *mMediaGuid != mediaGuidOf(document)) {
            finish();
            mMediaGuid = mediaGuidOf(document);
            mProjectGuid = projectGuid;
            if (segmentOf(document) == 0) {
                readClip(document, mClip);
                mClip.progressComplete = isComplete(document);
            }
        }
        if (segmentOf(document) == 0) addProject(projectGuid, document);
        return projectGuid != mProjectGuid || addSegment(document);
    }

    void finish() {
        for (KsNNDBEntrySeg& segment : mClip.segments)
            segment.projectGuidList = mProjectGuids;
        if (!mClip.segments.empty()) mTake(mClip);
        mClip = {};
        mProjectGuids.clear();
        mMediaGuid.reset();
    }

private:
    void addProject(const std::string& projectGuid, const Object& document) {
        if (std::find(mProjectGuids.begin(), mProjectGuids.end(), projectGuid) != mProjectGuids.end()) return;
        mClip.projects.push_back({projectNameVersion1Of(document), projectGuid});
        mProjectGuids.push_back(projectGuid);
    }

    bool addSegment(const Object& document) {
        KsNNDBEntrySeg segment = readText(document);
        segment.speakerID = kNoSpeaker;
        if (!readTimes(document, segment)) return false;
        mClip.segments.push_back(std::move(segment));
        return true;
    }

    TakeClip mTake;
    KsNNDB_STTClipEntry mClip;
    std::vector<std::string> mProjectGuids;
    std::optional<std::string> mMediaGuid; ///< of the clip at hand
    std::string mProjectGuid;
};

/// Gives the upgrade every document of the index.
KsNN_ErrorCode readStore(Operation& operation, const std::string& index, int total,
                         const KsNNProgressCallback& progress, int batchSize, ClipUpgrade& upgrade) {
    Scroll scroll(operation, index, everyDocumentInOrder(), batchSize, Scroll::Continues::FromLastPage,
                  "KsNNDatabase::UpdateDatabaseVersion err: ");
    int processed = 0;
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        const KsNN_ErrorCode code = operation.guard([&] {
            for (const Object::Ptr& hit : ObjectsOf(scroll.hits())) {
                if (const auto cancelled = operation.tell(progress, processed++, total)) return cancelled;
                const Object::Ptr document = sourceOf(*hit);
                if (isLockDocument(*document)) continue; // a lock that was never released
                if (!upgrade.add(*document)) return operation.fail();
            }
            return KsNN_Success;
        });
        if (code != KsNN_Success) return code;
    }
    upgrade.finish();
    return KsNN_Success;
}

constexpr const char* kSuffixes[] = {"dbg", "rel"};

std::string roleOf(const std::string& suffix) {
    return "transcript_index_" + suffix + "_access";
}

std::string rolePath(const std::string& suffix) {
    return "_security/role/" + roleOf(suffix);
}

std::string debugUserPath() {
    return "_security/user/" + debugCredentials().user;
}

Object::Ptr allPrivilegesOn(const std::string& indices) {
    return object({{"names", toArray(std::vector{indices})}, {"privileges", toArray(std::vector{"all"})}});
}

Object::Ptr roleDocument(const std::string& suffix) {
    Array::Ptr indices = new Array;
    indices->add(allPrivilegesOn("*_" + suffix));
    if (suffix == kSuffixes[0]) indices->add(allPrivilegesOn(kDebugIndexVersion1));
    return object({{"cluster", toArray(std::vector{"monitor"})}, {"indices", indices}});
}

Object::Ptr debugUserDocument() {
    return object(
        {{"password", debugCredentials().password}, {"roles", toArray(std::vector{roleOf(kSuffixes[0])})}});
}

} // namespace

KsNN_ErrorCode KsNNDatabase::MigrateDatabaseVersion1to2(bool testMode, bool debug,
                                                        KsNNProgressCallback progress, int batchSize) {
    Operation operation(*this, "KsNNDatabase::MigrateDatabaseVersion1to2 err: ", debug);
    const std::string oldIndex = testMode ? kDebugIndexVersion1 : kIndexVersion1;
    const std::string newIndex = std::string(kDefaultTranscriptIndex) + (testMode ? "_gtest_dbg" : "_rel");
    const std::string indexBefore = std::exchange(mTranscriptIndex, oldIndex);
    int total = 0;
    if (const auto code = GetTotalSegmentCount(total, debug)) {
        mTranscriptIndex = indexBefore; // which of the two holds the data is unknown
        return code;
    }
    if (total == 0) {
        mTranscriptIndex = newIndex;
        return KsNN_Success;
    }
    bool isMigrated = false;
    if (const auto code = CheckIndex(isMigrated, newIndex, debug)) return code;

    const auto copyStore = [&] {
        if (const auto code = CreateIndex(newIndex, debug)) return code;
        std::stringstream bulk;
        ClipUpgrade upgrade([&](KsNNDB_STTClipEntry& clip) { addToBulkCreateStream(clip, bulk, debug); });
        if (const auto code = readStore(operation, oldIndex, total, progress, batchSize, upgrade))
            return code;
        return bulk.tellp() > 0 ? operation.createAll(newIndex, bulk) : KsNN_Success;
    };
    // An index that is left half filled would pass for a migrated store, and cost the old one.
    const auto dropCopy = [&] {
        const std::string report = GetErrorStr();
        if (DeleteIndex(newIndex, debug) == KsNN_Success) {
            SetErrorStr(report);
            return;
        }
        operation.failSaying("The index " + newIndex + " is incomplete; delete it before migrating again.");
        SetErrorStr(report + GetErrorStr());
    };
    if (!isMigrated) {
        if (const auto code = copyStore()) {
            dropCopy();
            return code;
        }
    }
    mTranscriptIndex = newIndex;
    if (const auto code = DeleteIndex(oldIndex, debug)) return code;
    return CreateIndex(oldIndex, debug);
}

KsNN_ErrorCode KsNNDatabase::UpdateDBUsersVersion1to2(bool& updated, bool debug) {
    Operation operation(*this, "KsNNDatabase::UpdateDBUsersVersion1to2 HTTPResponse err: ", debug);
    bool exists = false;
    if (const auto code = CheckIndex(exists, mTranscriptIndex, debug)) return code;
    updated = !exists;
    if (exists) return KsNN_Success;
    for (const char* suffix : kSuffixes) {
        if (const auto code = operation.ask("PUT", rolePath(suffix), roleDocument(suffix))) return code;
    }
    return operation.ask("POST", debugUserPath(), debugUserDocument());
}

KsNN_ErrorCode KsNNDatabase::DowngradeDBUsersVersion2to1(bool debug) {
    Operation operation(*this, "KsNNDatabase::DowngradeDBUsersVersion2to1 HTTPResponse err: ", debug);
    for (const char* suffix : kSuffixes) {
        if (const auto code = operation.ask("DELETE", rolePath(suffix))) return code;
    }
    return operation.ask("DELETE", debugUserPath());
}
