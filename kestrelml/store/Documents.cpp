#include "kestrelml/store/Documents.h"

#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"

#include <iostream>

namespace kestrelml::detail {
namespace {

/// Adds what both versions store with every segment.
void addSegmentFields(Object& document, const KsNNDBEntrySeg& seg) {
    document.set("segment", seg.segment);
    document.set("mediaGuid", seg.mediaGuid);
    document.set("transcript", seg.transcript);
    document.set("wordStartsMS", toArray(seg.wordStartsMS));
    document.set("wordEndsMS", toArray(seg.wordEndsMS));
    document.set("language", seg.language);
    document.set("speakerID", seg.speakerID);
}

/// Adds what both versions store with segment 0 only.
void addClipFields(Object& document, const KsNNDBEntryBase& base) {
    document.set("model", base.model);
    document.set("clipName", base.clipName);
    document.set("audioTracks", base.audioTracks);
    document.set("progressComplete", base.progressComplete);
    document.set("clientApp", base.clientApp);
}

Object::Ptr documentVersion2(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg,
                             const std::vector<std::string>& projectGuids,
                             const std::vector<KsNNProject>& projects) {
    Object::Ptr document = new Object;
    addSegmentFields(*document, seg);
    document->set("projectGuidList", toArray(projectGuids));
    if (seg.segment == 0) {
        Array::Ptr projectList = new Array;
        for (const KsNNProject& project : projects) {
            Object::Ptr pair = object("projectGuid", project.projectGuid);
            pair->set("projectName", project.projectName);
            projectList->add(pair);
        }
        document->set("projectList", projectList);
        addClipFields(*document, base);
        document->set("schemaVersion", 2);
    }
    return document;
}

/// Creates the document; succeeds only when the service says that it did.
KsNN_ErrorCode create(Request& request, const std::string& index, const Object::Ptr& document) {
    if (const auto code = request.send("POST", index + "/_doc", document)) return code;
    if (!request.hasStatus({200, 201})) return request.fail();
    return request.expectText("result", "created");
}

} // namespace

Object::Ptr documentVersion1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg) {
    Object::Ptr document = new Object;
    addSegmentFields(*document, seg);
    document->set("projectGuid", seg.projectGuid);
    if (seg.segment == 0) {
        document->set("project", base.projectName);
        addClipFields(*document, base);
    }
    return document;
}

Object::Ptr documentVersion2(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg) {
    return documentVersion2(base, seg, {seg.projectGuid}, {{base.projectName, seg.projectGuid}});
}

void appendBulkCreate(const KsNNDB_STTClipEntry& entry, const KsNNDBEntrySeg& seg, std::ostream& bulk) {
    bulk << "{ \"create\" : {} }\n";
    documentVersion2(entry, seg, seg.projectGuidList, entry.projects)->stringify(bulk);
    bulk << '\n';
}

} // namespace kestrelml::detail

using namespace kestrelml::detail;

KsNN_ErrorCode KsNNDatabase::WriteToDB(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug) {
    ResetErrorStr();
    Request request(*this, "KsNNDatabase::WriteToDB err: ", debug);
    if (seg.segment == 0) {
        bool locked = false;
        if (const auto code = GetLockState(seg.mediaGuid, locked, debug)) return code;
        if (!locked) return request.failWith("KsNNDatabase::WriteToDB: Missing lock.");
    }

    int count = 0;
    if (const auto code = GetSegmentCount(seg.mediaGuid, seg.projectGuid, count, debug, 2)) return code;
    if (count > seg.segment) {
        if (debug) {
            std::cout << "KsNNDatabase::WriteToDB: Warning, early return, document already exists."
                      << std::endl;
        }
        return KsNN_Success;
    }

    int countOfAllProjects = 0;
    if (GetSegmentCount(seg.mediaGuid, "ANY", countOfAllProjects, debug, 2) != KsNN_Success)
        return KsNN_Error;
    if (countOfAllProjects > 0) {
        bool complete = false;
        if (GetProgressComplete(seg.mediaGuid, "ANY", complete, debug, 2) != KsNN_Success) return KsNN_Error;
        if (complete) {
            if (debug) {
                std::cout
                    << "KsNNDatabase::WriteToDB err: Should be appending! A completed entry with mediaGuid "
                    << seg.mediaGuid << " exists." << std::endl;
            }
            return KsNN_Error;
        }
    }

    bool exists = false;
    if (CheckIndex(exists, mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    if (!exists && CreateIndex(mTranscriptIndex, debug) != KsNN_Success) return KsNN_Error;
    if (debug) std::cout << "KsNNDatabase::WriteToDB: Creating new document." << std::endl;
    return request.guard([&] { return create(request, mTranscriptIndex, documentVersion2(base, seg)); });
}

KsNN_ErrorCode KsNNDatabase::WriteToDBVer1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg,
                                           bool debug) {
    ResetErrorStr();
    int count = 0;
    if (const auto code = GetSegmentCount(seg.mediaGuid, seg.projectGuid, count, debug, 2)) return code;
    if (count > seg.segment) {
        if (debug) {
            std::cout << "KsNNDatabase::WriteToDBVer1: warning, early return, document already exists"
                      << std::endl;
        }
        return KsNN_Success;
    }
    Request request(*this, "KsNNDatabase::WriteToDBVer1 err: ", debug);
    return request.guard([&] { return create(request, mTranscriptIndex, documentVersion1(base, seg)); });
}

KsNN_ErrorCode KsNNDatabase::addToBulkCreateStream(KsNNDB_STTClipEntry& entry, std::stringstream& bulk,
                                                   bool debug) {
    for (const KsNNDBEntrySeg& seg : entry.segments) {
        appendBulkCreate(entry, seg, bulk);
        if (debug) {
            std::cout << "KsNNDatabase::addtoBulkCreateStream: bulkStream: " << bulk.str() << std::endl;
        }
    }
    return KsNN_Success;
}
