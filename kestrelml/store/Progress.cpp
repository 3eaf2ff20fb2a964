#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"

#include <iostream>

using namespace kestrelml::detail;

namespace {

Object::Ptr segmentZeroQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    Array::Ptr conditions = array({term("mediaGuid.keyword", mediaGuid), term("segment", 0)});
    if (version == 1) conditions->add(term(projectField(version), projectGuid));
    return matchingAll(conditions);
}

Object::Ptr countQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    Array::Ptr conditions = array({term("mediaGuid.keyword", mediaGuid)});
    const bool everyProject = version == 2 && projectGuid == "ANY";
    if (!everyProject) conditions->add(term(projectField(version), projectGuid));
    return matchingAll(conditions);
}

} // namespace

KsNN_ErrorCode KsNNDatabase::GetSegmentCount(const std::string& mediaGuid, const std::string& projectGuid,
                                             int& count, bool debug, int version) {
    ResetErrorStr();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;
    if (!isKnownVersion(version)) {
        reportError(nullptr, "KsNNDatabase::GetSegmentCount err: version is invalid.", __LINE__, this, debug);
        return KsNN_Error;
    }
    return GetQueryResultCount("GET", mTranscriptIndex + "/_count",
                               countQuery(mediaGuid, projectGuid, version), this, count, debug);
}

KsNN_ErrorCode KsNNDatabase::GetTotalSegmentCount(int& count, bool debug) {
    ResetErrorStr();
    count = 0;
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;
    return GetQueryResultCount("GET", mTranscriptIndex + "/_count", nullptr, this, count, debug);
}

KsNN_ErrorCode KsNNDatabase::GetProgressComplete(const std::string& mediaGuid, const std::string& projectGuid,
                                                 bool& complete, bool debug, int version) {
    ResetErrorStr();
    complete = false;
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;

    int count = -1;
    if (GetSegmentCount(mediaGuid, projectGuid, count, debug, version) != KsNN_Success) {
        if (debug) std::cout << "KsNNDatabase::GetProgressComplete: error with GetSegmentCount" << std::endl;
        return KsNN_Error;
    }
    if (count <= 0) {
        if (debug) {
            std::cout << "KsNNDatabase::GetProgressComplete: warning, early return, document not found"
                      << std::endl;
        }
        return KsNN_Success;
    }

    Request request(*this, "KsNNDatabase::GetProgressComplete err: ", debug);
    const Object::Ptr query = segmentZeroQuery(mediaGuid, projectGuid, version);
    if (const auto code = request.send("POST", mTranscriptIndex + "/_search", query)) return code;
    if (!request.hasStatus({200})) return KsNN_Error;
    return request.read([&](const Object& answer) {
        const Object::Ptr hit = onlyHitOf(answer);
        if (hit.isNull()) return KsNN_Error;
        complete = memberOf(*sourceOf(*hit), "progressComplete").convert<bool>();
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::SetProgressComplete(const std::string& mediaGuid, bool debug, int version,
                                                 std::string projectGuid) {
    ResetErrorStr();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;

    Request request(*this, "KsNNDatabase::SetProgressComplete err: ", debug);
    if (projectGuid.empty()) projectGuid = "ANY";
    int count = -1;
    if (GetSegmentCount(mediaGuid, projectGuid, count, debug, version) != KsNN_Success) return request.fail();
    if (count <= 0) {
        if (debug) {
            std::cout << "KsNNDatabase::SetProgressComplete: Early return, document not found" << std::endl;
        }
        return KsNN_Success;
    }
    if (!isKnownVersion(version)) {
        return request.failWith("KsNNDatabase::SetProgressComplete err: version is invalid.");
    }

    const Object::Ptr query = segmentZeroQuery(mediaGuid, projectGuid, version);
    if (const auto code = request.sendExpectingOk("POST", mTranscriptIndex + "/_search", query)) return code;
    std::string id;
    const KsNN_ErrorCode found = request.read([&](const Object& answer) {
        const Object::Ptr hit = onlyHitOf(answer);
        if (hit.isNull()) return request.fail();
        id = textOf(*hit, "_id");
        return KsNN_Success;
    });
    if (found != KsNN_Success) return found;

    const auto printFlag = [&] {
        bool flag = false;
        if (GetProgressComplete(mediaGuid, "ANY", flag, debug, version) != KsNN_Success) return KsNN_Error;
        std::cout << "KsNNDatabase::SetProgressComplete: progressCompleteCheck " << flag << std::endl;
        return KsNN_Success;
    };
    if (debug && printFlag() != KsNN_Success) return KsNN_Error;
    const Object::Ptr update = object("doc", object("progressComplete", true));
    if (const auto code = request.sendExpectingOk("POST", updatePath(mTranscriptIndex, id), update))
        return code;
    return debug ? printFlag() : KsNN_Success;
}
