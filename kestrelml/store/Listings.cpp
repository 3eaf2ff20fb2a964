#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

using namespace kestrelml::detail;

namespace {

constexpr const char* kProjects = "projects";

/// Buckets of project identifiers, and in each of them buckets of the names that go with it. The inner two
/// are named like the fields they count.
Object::Ptr projectCount() {
    Object::Ptr guids = bucketsBy(field::kProjectListGuid, kMaximumHits);
    guids->set("aggs", object(field::kProjectName, bucketsBy(field::kProjectListName)));
    const Object::Ptr projects = object(
        {{"nested", object("path", field::kProjectList)}, {"aggs", object(field::kProjectGuid, guids)}});
    return object("aggs", object(kProjects, projects));
}

KsNNProject projectOf(const Object& bucket) {
    const Array::Ptr names = bucketsOf(*objectOf(bucket, field::kProjectName));
    return {keyOf(*objectAt(*names, 0)), keyOf(bucket)};
}

Object::Ptr completeClips(const std::string& projectGuid) {
    if (projectGuid == kAll) return searchFor(allOf({withProgressComplete(true), ofSegment(0)}));
    return searchFor(allOf({ofProject(projectGuid), withProgressComplete(true), ofSegment(0)}));
}

} // namespace

KsNN_ErrorCode KsNNDatabase::GetAllEntries(std::vector<KsNNProject>& projects, bool debug) {
    Operation operation(*this, "KsNNDatabase::GetAllEntries err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    if (const auto code = operation.ask("POST", searchPath(mTranscriptIndex), projectCount())) return code;
    return operation.read([&](const Object& answer) {
        const Object::Ptr guids = objectOf(*aggregationOf(answer, kProjects), field::kProjectGuid);
        operation.debugLine("KsNNDatabase::GetAllEntries entry results (each entry[x] is segment 0):");
        int number = 0;
        for (const Object::Ptr& bucket : ObjectsOf(bucketsOf(*guids))) {
            const KsNNProject project = projectOf(*bucket);
            operation.debugLine("entry", number, ".projectName: ", project.projectName);
            operation.debugLine("entry", number, ".projectGuid: ", project.projectGuid, "\n");
            projects.push_back(project);
            ++number;
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::GetAllMediaGuids(const std::string& projectGuid,
                                              std::vector<std::string>& mediaGuids, bool debug,
                                              int pageSize) {
    mediaGuids.clear();
    Operation operation(*this, "KsNNDatabase::GetAllMediaGuids err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    Scroll scroll(operation, mTranscriptIndex, completeClips(projectGuid), pageSize);
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        const KsNN_ErrorCode read = operation.guard([&] {
            for (const Object::Ptr& hit : ObjectsOf(scroll.hits()))
                mediaGuids.push_back(mediaGuidOf(*sourceOf(*hit)));
            return KsNN_Success;
        });
        if (read != KsNN_Success) return read;
    }
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::GetAllInprogressEntries(std::vector<KsNNSearchResults>& results, bool debug) {
    Operation operation(*this, "KsNNDatabase::GetAllInprogressEntries err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr query = searchFor(object("bool", object("must", withProgressComplete(false))));
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer))) {
            const Object::Ptr document = sourceOf(*hit);
            KsNNSearchResults row;
            row.text = transcriptOf(*document);
            row.mediaGuid = mediaGuidOf(*document);
            for (const std::string& projectGuid : projectGuidsOf(*document)) {
                row.projectGuid = projectGuid;
                results.push_back(row);
            }
        }
        return KsNN_Success;
    });
}
