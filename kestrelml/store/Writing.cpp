#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

using namespace kestrelml::detail;

KsNN_ErrorCode KsNNDatabase::WriteToDB(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug) {
    Operation operation(*this, "KsNNDatabase::WriteToDB err: ", debug);
    if (seg.segment == 0) {
        bool locked = false;
        if (const auto code = GetLockState(seg.mediaGuid, locked, debug)) return code;
        if (!locked) return operation.failWith("KsNNDatabase::WriteToDB: Missing lock.");
    }

    int count = 0;
    if (const auto code = GetSegmentCount(seg.mediaGuid, seg.projectGuid, count, debug, kVersion2))
        return code;
    if (count > seg.segment) {
        operation.debugLine("KsNNDatabase::WriteToDB: Warning, early return, document already exists.");
        return KsNN_Success;
    }

    int countOfAllProjects = 0;
    if (GetSegmentCount(seg.mediaGuid, kAnyProject, countOfAllProjects, debug, kVersion2) != KsNN_Success)
        return KsNN_Error;
    if (countOfAllProjects > 0) {
        bool complete = false;
        if (GetProgressComplete(seg.mediaGuid, kAnyProject, complete, debug, kVersion2) != KsNN_Success)
            return KsNN_Error;
        if (complete) {
            operation.debugLine("KsNNDatabase::WriteToDB err: Should be appending! A completed entry with ",
                                "mediaGuid ", seg.mediaGuid, " exists.");
            return KsNN_Error;
        }
    }

    bool exists = false;
    if (CheckIndex(exists, mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    if (!exists && CreateIndex(mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    operation.debugLine("KsNNDatabase::WriteToDB: Creating new document.");
    return operation.create(mTranscriptIndex, documentVersion2(base, seg));
}

KsNN_ErrorCode KsNNDatabase::WriteToDBVer1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg,
                                           bool debug) {
    Operation operation(*this, "KsNNDatabase::WriteToDBVer1 err: ", debug);
    int count = 0;
    if (const auto code = GetSegmentCount(seg.mediaGuid, seg.projectGuid, count, debug, kVersion2))
        return code;
    if (count > seg.segment) {
        operation.debugLine("KsNNDatabase::WriteToDBVer1: warning, early return, document already exists");
        return KsNN_Success;
    }
    return operation.create(mTranscriptIndex, documentVersion1(base, seg));
}

KsNN_ErrorCode KsNNDatabase::addToBulkCreateStream(KsNNDB_STTClipEntry& entry, std::stringstream& bulk,
                                                   bool debug) {
    for (const KsNNDBEntrySeg& seg : entry.segments) {
        appendBulkCreate(entry, seg, bulk);
        if (debug) debugLine(debug, "KsNNDatabase::addtoBulkCreateStream: bulkStream: ", bulk.str());
    }
    return KsNN_Success;
}
