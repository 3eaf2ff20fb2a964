#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scripts.h"

using namespace kestrelml::detail;

namespace {

constexpr int kWholeClip = -1;
constexpr const char* kWrongVersion = "Should not be using v1 index with v2 method!";

} // namespace

KsNN_ErrorCode KsNNDatabase::AppendProjectToEntry(const std::string& mediaGuid,
                                                  const std::string& projectGuid,
                                                  const std::string& projectName, const int& segment,
                                                  bool debug) {
    Operation operation(*this, "KsNNDatabase::AppendProjectToEntry err: ", debug);
    if (const auto code = operation.refreshExisting(mTranscriptIndex, "index does not exist!")) return code;
    bool locked = false;
    if (GetLockState(mediaGuid, locked, debug) != KsNN_Success || !locked)
        return operation.failWith("KsNNDatabase::AppendProjectToEntry: Missing lock.");
    if (isIndexOfVersion1(mTranscriptIndex)) return operation.failSaying(kWrongVersion);
    operation.debugLine("KsNNDatabase::AppendProjectToEntry: Appending projectGuid and projectName to ",
                        "existing document.");

    if (segment == kWholeClip || segment == 0) {
        const KsNN_ErrorCode code = operation.updateWhere(
            mTranscriptIndex, script::addProject(projectGuid, projectName), {ofClip(mediaGuid), ofSegment(0)},
            "KsNNDatabase::AppendProjectToEntry err: projectList append: ");
        if (code != KsNN_Success) return code;
    }
    if (const auto code = operation.refresh(mTranscriptIndex).code()) return code;
    return operation.updateWhere(mTranscriptIndex, script::addProjectGuid(projectGuid),
                                 segment == kWholeClip ? allOf({ofClip(mediaGuid)})
                                                       : allOf({ofSegment(segment), ofClip(mediaGuid)}),
                                 "KsNNDatabase::AppendToEntryArray err: projectGuidList append:");
}

KsNN_ErrorCode KsNNDatabase::RemoveProjectFromEntry(const std::string& mediaGuid,
                                                    const std::string& projectGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::RemoveProjectFromEntry err: ", debug);
    if (const auto code = operation.refreshExisting(mTranscriptIndex, "index does not exist!")) return code;
    if (isIndexOfVersion1(mTranscriptIndex)) return operation.failSaying(kWrongVersion);
    const KsNN_ErrorCode removed = operation.updateWhere(
        mTranscriptIndex, script::removeProject(projectGuid), {ofClip(mediaGuid), ofSegment(0)},
        "KsNNDatabase::RemoveProjectFromEntry err: projectList remove: ");
    if (removed != KsNN_Success) return removed;
    if (const auto code = operation.refresh(mTranscriptIndex).code()) return code;
    return operation.updateWhere(mTranscriptIndex, script::removeProjectGuid(projectGuid),
                                 {ofClip(mediaGuid)},
                                 "KsNNDatabase::RemoveProjectFromEntry err: projectGuidList remove: ");
}

KsNN_ErrorCode KsNNDatabase::AddNewProjectToProjectList(const std::string& mediaGuid,
                                                        const std::string& projectGuid,
                                                        const std::string& projectName, bool debug) {
    Operation operation(*this, "KsNNDatabase::AddNewProjectToProjectList err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();

    const Object::Ptr query = searchFor(allOf({ofClip(mediaGuid), ofProject(projectGuid), ofSegment(0)}));
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
    bool isMember = false;
    const KsNN_ErrorCode read = operation.read([&](const Object& answer) {
        isMember = hitsOf(answer)->size() == 1;
        return KsNN_Success;
    });
    if (read != KsNN_Success || isMember) return read;

    if (const auto code = AppendProjectToEntry(mediaGuid, projectGuid, projectName, kWholeClip, debug))
        return code;
    std::vector<KsNNSpeakerKV> speakers;
    if (const auto code = SpeakerGetList(projectGuid, speakers, debug)) return code;
    for (const KsNNSpeakerKV& speaker : speakers) {
        const KsNN_ErrorCode code = operation.updateWhere(
            mSpeakerIndex, script::addProjectToSpeaker(projectGuid, projectName),
            {ofDocument(speaker.speakerGuid)},
            "KsNNDatabase::AddNewProjectToProjectList err: speakerindex projectList append: ");
        if (code != KsNN_Success) return code;
    }
    return KsNN_Success;
}
