#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

using namespace kestrelml::detail;

KsNN_ErrorCode KsNNDatabase::LockEntry(const std::string& mediaGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::LockEntry err: ", debug);
    bool exists = false;
    if (const auto code = CheckIndex(exists, mTranscriptIndex, debug)) return code;
    if (!exists && CreateIndex(mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    // The service would choose an identifier, and nobody could release that lock.
    if (mediaGuid.empty()) return operation.failSaying("The media identifier is empty.");
    const std::string path = documentPath(mTranscriptIndex, mediaGuid) + "?op_type=create";
    if (const auto code = operation.send("POST", path, lockDocument())) return code;
    if (operation.hasStatus({409})) return KsNN_LockConflict;
    if (!operation.hasStatus({200, 201})) return operation.fail();
    return operation.expectText("result", "created");
}

KsNN_ErrorCode KsNNDatabase::GetLockState(const std::string& mediaGuid, bool& locked, bool debug) {
    locked = false;
    Operation operation(*this, "KsNNDatabase::GetLockState err: ", debug);
    if (const auto code = operation.refreshExisting(mTranscriptIndex, "Index doesn't exist.")) return code;
    if (const auto code = operation.send("GET", documentPath(mTranscriptIndex, mediaGuid))) return code;
    if (operation.hasStatus({404})) return KsNN_Success;
    if (!operation.hasStatus({200})) return operation.fail();
    if (const auto code = operation.expectText("found", "true")) return code;
    locked = true;
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::UnlockEntry(const std::string& mediaGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::UnlockEntry err: ", debug);
    if (const auto code = operation.refreshExisting(mTranscriptIndex, "Index doesn't exist")) return code;
    if (const auto code = operation.send("DELETE", documentPath(mTranscriptIndex, mediaGuid))) return code;
    if (operation.hasStatus({404})) return KsNN_LockConflict;
    if (!operation.hasStatus({200})) return operation.fail();
    return operation.expectText("result", "deleted");
}

KsNN_ErrorCode KsNNDatabase::FindAllLockedMediaGuids(std::vector<std::string>& mediaGuids, bool debug) {
    Operation operation(*this, "KsNNDatabase::FindAllLockedMediaGuids err: ", debug);
    const IndexState index = operation.refresh(mTranscriptIndex);
    if (const auto code = index.code()) return code;
    if (index.isMissing()) {
        if (const auto code = CreateIndex(mTranscriptIndex, debug)) return code;
    }
    const std::string path = searchPath(mTranscriptIndex) + "/";
    if (const auto code = operation.ask("GET", path, searchFor(isLock()))) return code;
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            mediaGuids.push_back(idOf(*hit));
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::UnlockAllEntries(bool debug) {
    std::vector<std::string> mediaGuids;
    if (const auto code = FindAllLockedMediaGuids(mediaGuids, debug)) return code;
    for (const std::string& mediaGuid : mediaGuids) {
        const KsNN_ErrorCode code = UnlockEntry(mediaGuid, debug);
        if (code != KsNN_Success && code != KsNN_LockConflict) return code;
    }
    return KsNN_Success;
}
