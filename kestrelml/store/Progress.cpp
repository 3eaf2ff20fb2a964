#include "kestrelml/core/RESTCall.h"
#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

using namespace kestrelml::detail;

namespace {

Object::Ptr segmentZeroQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    if (version == kVersion1)
        return searchFor(allOf({ofClip(mediaGuid), ofSegment(0), ofProject(projectGuid, version)}));
    return searchFor(allOf({ofClip(mediaGuid), ofSegment(0)}));
}

Object::Ptr countQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    if (version == kVersion2 && projectGuid == kAnyProject) return searchFor(allOf({ofClip(mediaGuid)}));
    return searchFor(allOf({ofClip(mediaGuid), ofProject(projectGuid, version)}));
}

} // namespace

KsNN_ErrorCode KsNNDatabase::GetSegmentCount(const std::string& mediaGuid, const std::string& projectGuid,
                                             int& count, bool debug, int version) {
    Operation operation(*this, "KsNNDatabase::GetSegmentCount err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    if (!isKnownVersion(version)) return operation.failSaying("version is invalid.");
    return GetQueryResultCount("GET", countPath(mTranscriptIndex),
                               countQuery(mediaGuid, projectGuid, version), this, count, debug);
}

KsNN_ErrorCode KsNNDatabase::GetTotalSegmentCount(int& count, bool debug) {
    count = 0;
    Operation operation(*this, "KsNNDatabase::GetTotalSegmentCount err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    return GetQueryResultCount("GET", countPath(mTranscriptIndex), nullptr, this, count, debug);
}

KsNN_ErrorCode KsNNDatabase::GetProgressComplete(const std::string& mediaGuid, const std::string& projectGuid,
                                                 bool& complete, bool debug, int version) {
    complete = false;
    Operation operation(*this, "KsNNDatabase::GetProgressComplete err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();

    int count = -1;
    if (GetSegmentCount(mediaGuid, projectGuid, count, debug, version) != KsNN_Success) {
        operation.debugLine("KsNNDatabase::GetProgressComplete: error with GetSegmentCount");
        return KsNN_Error;
    }
    if (count <= 0) {
        operation.debugLine("KsNNDatabase::GetProgressComplete: warning, early return, document not found");
        return KsNN_Success;
    }

    const Object::Ptr query = segmentZeroQuery(mediaGuid, projectGuid, version);
    if (const auto code = operation.send("POST", searchPath(mTranscriptIndex), query)) return code;
    if (!operation.hasStatus({200})) return KsNN_Error;
    return operation.read([&](const Object& answer) {
        const Object::Ptr hit = onlyHitOf(answer);
        if (hit.isNull()) return KsNN_Error;
        complete = isComplete(*sourceOf(*hit));
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::SetProgressComplete(const std::string& mediaGuid, bool debug, int version,
                                                 std::string projectGuid) {
    Operation operation(*this, "KsNNDatabase::SetProgressComplete err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();

    if (projectGuid.empty()) projectGuid = kAnyProject;
    int count = -1;
    if (GetSegmentCount(mediaGuid, projectGuid, count, debug, version) != KsNN_Success)
        return operation.fail();
    if (count <= 0) {
        operation.debugLine("KsNNDatabase::SetProgressComplete: Early return, document not found");
        return KsNN_Success;
    }
    if (!isKnownVersion(version)) return operation.failSaying("version is invalid.");

    const Object::Ptr query = segmentZeroQuery(mediaGuid, projectGuid, version);
    if (const auto code = operation.ask("POST", searchPath(mTranscriptIndex), query)) return code;
    std::string id;
    const KsNN_ErrorCode found = operation.read([&](const Object& answer) {
        const Object::Ptr hit = onlyHitOf(answer);
        if (hit.isNull()) return operation.fail();
        id = idOf(*hit);
        return KsNN_Success;
    });
    if (found != KsNN_Success) return found;

    const auto printFlag = [&] {
        bool flag = false;
        if (GetProgressComplete(mediaGuid, kAnyProject, flag, debug, version) != KsNN_Success)
            return KsNN_Error;
        operation.debugLine("KsNNDatabase::SetProgressComplete: progressCompleteCheck ", flag);
        return KsNN_Success;
    };
    if (debug && printFlag() != KsNN_Success) return KsNN_Error;
    const Object::Ptr update = changeOf(field::kProgressComplete, true);
    if (const auto code = operation.ask("POST", updatePath(mTranscriptIndex, id), update)) return code;
    return debug ? printFlag() : KsNN_Success;
}
