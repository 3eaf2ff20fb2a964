#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"

#include <iostream>

using namespace kestrelml::detail;

namespace {

constexpr const char* kLockField = "KSNNlock";

} // namespace

KsNN_ErrorCode KsNNDatabase::LockEntry(const std::string& mediaGuid, bool debug) {
    bool exists = false;
    if (const auto code = CheckIndex(exists, mTranscriptIndex, debug)) return code;
    if (!exists && CreateIndex(mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    Request request(*this, "KsNNDatabase::LockEntry err: ", debug);
    if (mediaGuid.empty()) {
        // The service would choose an identifier, and nobody could release that lock.
        return request.failWith("KsNNDatabase::LockEntry err: The media identifier is empty.");
    }
    const std::string path = documentPath(mTranscriptIndex, mediaGuid) + "?op_type=create";
    if (const auto code = request.send("POST", path, object(kLockField, true))) return code;
    if (request.hasStatus({409})) return KsNN_LockConflict;
    if (!request.hasStatus({200, 201})) return request.fail();
    return request.expectText("result", "created");
}

KsNN_ErrorCode KsNNDatabase::GetLockState(const std::string& mediaGuid, bool& locked, bool debug) {
    locked = false;
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    Request request(*this, "KsNNDatabase::GetLockState err: ", debug);
    if (!exists) return request.failWith("KsNNDatabase::GetLockState err: Index doesn't exist.");
    if (const auto code = request.send("GET", documentPath(mTranscriptIndex, mediaGuid))) return code;
    if (request.hasStatus({404})) return KsNN_Success;
    if (!request.hasStatus({200})) return request.fail();
    if (const auto code = request.expectText("found", "true")) return code;
    locked = true;
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::UnlockEntry(const std::string& mediaGuid, bool debug) {
    ResetErrorStr();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    Request request(*this, "KsNNDatabase::UnlockEntry err: ", debug);
    if (!exists) return request.failWith("KsNNDatabase::UnlockEntry err: Index doesn't exist");
    if (const auto code = request.send("DELETE", documentPath(mTranscriptIndex, mediaGuid))) return code;
    if (request.hasStatus({404})) return KsNN_LockConflict;
    if (!request.hasStatus({200})) return request.fail();
    return request.expectText("result", "deleted");
}

KsNN_ErrorCode KsNNDatabase::FindAllLockedMediaGuids(std::vector<std::string>& mediaGuids, bool debug) {
    ResetErrorStr();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) {
        if (const auto code = CreateIndex(mTranscriptIndex, debug)) return code;
    }
    Request request(*this, "KsNNDatabase::FindAllLockedMediaGuids err: ", debug);
    const Object::Ptr query = object("query", object("exists", object("field", kLockField)));
    if (const auto code = request.sendExpectingOk("GET", mTranscriptIndex + "/_search/", query)) return code;
    return request.read([&](const Object& answer) {
        const Array::Ptr hits = hitsOf(answer);
        for (std::size_t i = 0; i < hits->size(); ++i)
            mediaGuids.push_back(textOf(*objectAt(*hits, i), "_id"));
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
