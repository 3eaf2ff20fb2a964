#include "kestrelml/store/Schema.h"

#include "kestrelml/store/Answer.h"

namespace kestrelml::detail {
namespace {

/// Adds what both versions store with every segment.
void addSegmentFields(Object& document, const KsNNDBEntrySeg& seg) {
    document.set(field::kSegment, seg.segment);
    document.set(field::kMediaGuid, seg.mediaGuid);
    document.set(field::kTranscript, seg.transcript);
    document.set(field::kWordStartsMS, toArray(seg.wordStartsMS));
    document.set(field::kWordEndsMS, toArray(seg.wordEndsMS));
    if (!seg.wordConfidences.empty()) document.set(field::kWordConfidences, toArray(seg.wordConfidences));
    document.set(field::kLanguage, seg.language);
    document.set(field::kSpeakerID, seg.speakerID);
}

/// Adds what both versions store with segment 0 only.
void addClipFields(Object& document, const KsNNDBEntryBase& base) {
    document.set(field::kModel, base.model);
    document.set(field::kClipName, base.clipName);
    document.set(field::kAudioTracks, base.audioTracks);
    document.set(field::kProgressComplete, base.progressComplete);
    document.set(field::kClientApp, base.clientApp);
}

Object::Ptr documentVersion2(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg,
                             const std::vector<std::string>& projectGuids,
                             const std::vector<KsNNProject>& projects) {
    Object::Ptr document = new Object;
    addSegmentFields(*document, seg);
    document->set(field::kProjectGuidList, toArray(projectGuids));
    if (seg.segment == 0) {
        Array::Ptr projectList = new Array;
        for (const KsNNProject& project : projects)
            projectList->add(projectDocument(project.projectGuid, project.projectName));
        document->set(field::kProjectList, projectList);
        addClipFields(*document, base);
        document->set(field::kSchemaVersion, kVersion2);
    }
    return document;
}

} // namespace

std::string exact(const char* field) {
    return std::string(field) + ".keyword";
}

bool isKnownVersion(int version) {
    return version == kVersion1 || version == kVersion2;
}

bool isIndexOfVersion1(const std::string& index) {
    return index == kDebugIndexVersion1 || index == kIndexVersion1;
}

Object::Ptr indexDefinition() {
    const Object::Ptr keyword = object("type", "keyword");
    // A nested document keeps identifier and name of a project together.
    const Object::Ptr projectList =
        object({{"type", "nested"},
                {"properties", object({{field::kProjectGuid, keyword}, {field::kProjectName, keyword}})}});
    return object({{"settings", object("number_of_shards", 1)},
                   {"mappings", object("properties", object(field::kProjectList, projectList))}});
}

Object::Ptr ofClip(const std::string& mediaGuid) {
    return term(exact(field::kMediaGuid), mediaGuid);
}

Object::Ptr ofClipName(const std::string& clipName) {
    return term(exact(field::kClipName), clipName);
}

Object::Ptr ofProject(const std::string& projectGuid, int version) {
    return term(exact(version == kVersion1 ? field::kProjectGuid : field::kProjectGuidList), projectGuid);
}

Object::Ptr ofSegment(int segment) {
    return term(field::kSegment, segment);
}

Object::Ptr ofSpeaker(const std::string& speakerGuid) {
    return term(exact(field::kSpeakerGuid), speakerGuid);
}

Object::Ptr withSpeakerLabel(const std::string& speakerID) {
    return term(exact(field::kSpeakerID), speakerID);
}

Object::Ptr withProgressComplete(bool complete) {
    return term(field::kProgressComplete, complete);
}

Object::Ptr ofAnyClip(const std::vector<std::string>& mediaGuids) {
    return terms(exact(field::kMediaGuid), mediaGuids);
}

Array::Ptr ofEachClip(const std::vector<std::string>& mediaGuids) {
    Array::Ptr conditions = new Array;
    for (const std::string& mediaGuid : mediaGuids)
        conditions->add(ofClip(mediaGuid));
    return conditions;
}

Array::Ptr ofEachProject(const std::vector<std::string>& projectGuids) {
    Array::Ptr conditions = new Array;
    for (const std::string& projectGuid : projectGuids)
        conditions->add(ofProject(projectGuid));
    return conditions;
}

Object::Ptr isLock() {
    return exists(field::kLock);
}

Object::Ptr ofDocument(const std::string& id) {
    return term(field::kId, id);
}

Object::Ptr speakerOfProject(const std::string& projectGuid) {
    return nested(field::kProjectList, allOf({term(field::kProjectListGuid, projectGuid)}));
}

Object::Ptr changeOf(const std::string& field, const Var& value) {
    return object("doc", object(field, value));
}

Object::Ptr documentVersion1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg) {
    Object::Ptr document = new Object;
    addSegmentFields(*document, seg);
    document->set(field::kProjectGuid, seg.projectGuid);
    if (seg.segment == 0) {
        document->set(field::kProject, base.projectName);
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

Object::Ptr projectDocument(const std::string& projectGuid, const std::string& projectName) {
    return object({{field::kProjectGuid, projectGuid}, {field::kProjectName, projectName}});
}

Object::Ptr speakerDocument(const KsNNSpeakerKV& speaker) {
    Array::Ptr projectList = new Array;
    projectList->add(projectDocument(speaker.projectGuid, speaker.projectName));
    return object({{field::kProjectList, projectList}, {field::kSpeakerName, speaker.speakerName}});
}

Object::Ptr lockDocument() {
    return object(field::kLock, true);
}

int segmentOf(const Object& document) {
    return integerOf(document, field::kSegment);
}

std::string mediaGuidOf(const Object& document) {
    return textOf(document, field::kMediaGuid);
}

std::string transcriptOf(const Object& document) {
    return textOf(document, field::kTranscript);
}

std::string languageOf(const Object& document) {
    return textOf(document, field::kLanguage);
}

std::string speakerLabelOf(const Object& document) {
    return textOf(document, field::kSpeakerID);
}

std::vector<std::string> projectGuidsOf(const Object& document) {
    return textsOf(document, field::kProjectGuidList);
}

std::vector<KsNNProject> projectsOf(const Object& document) {
    std::vector<KsNNProject> projects;
    for (const Object::Ptr& project : ObjectsOf(arrayOf(document, field::kProjectList)))
        projects.push_back({textOf(*project, field::kProjectName), textOf(*project, field::kProjectGuid)});
    return projects;
}

bool isComplete(const Object& document) {
    return memberOf(document, field::kProgressComplete).convert<bool>();
}

bool hasSpeakerLabel(const Object& document) {
    return !document.isNull(field::kSpeakerID);
}

bool isVersion2(const Object& document) {
    const Var version = document.get(field::kSchemaVersion);
    return !version.isEmpty() && version.convert<Poco::Int32>() == kVersion2;
}

bool hasSpeaker(const Object& document) {
    return !document.isNull(field::kSpeakerGuid);
}

std::string speakerGuidOf(const Object& document) {
    return textOf(document, field::kSpeakerGuid);
}

std::string clipNameOf(const Object& document) {
    return textOf(document, field::kClipName);
}

bool isLockDocument(const Object& document) {
    return document.has(field::kLock) && !document.has(field::kMediaGuid);
}

KsNNDBEntrySeg readText(const Object& document) {
    KsNNDBEntrySeg seg;
    seg.segment = segmentOf(document);
    seg.mediaGuid = mediaGuidOf(document);
    seg.transcript = transcriptOf(document);
    seg.language = languageOf(document);
    return seg;
}

void readSpeaker(const Object& document, KsNNDBEntrySeg& seg) {
    if (hasSpeaker(document)) seg.speakerGuid = speakerGuidOf(document);
}

/// Other programs may have given the field another meaning: what does not fit the words is left out.
void readConfidences(const Object& document, KsNNDBEntrySeg& seg) {
    const Var value = document.get(field::kWordConfidences);
    if (value.type() != typeid(Array::Ptr)) return;
    const Array& confidences = *value.extract<Array::Ptr>();
    const bool fits = confidences.size() == seg.wordStartsMS.size() &&
                      std::all_of(confidences.begin(), confidences.end(), [](const Var& one) {
                          if (!one.isInteger() || one.isBoolean()) return false;
                          const auto percent = one.convert<double>();
                          return percent >= 0 && percent <= 100;
                      });
    for (std::size_t i = 0; fits && i < confidences.size(); ++i)
        seg.wordConfidences.push_back(integerAt(confidences, i));
}

bool readTimes(const Object& document, KsNNDBEntrySeg& seg) {
    const Array::Ptr starts = arrayOf(document, field::kWordStartsMS);
    const Array::Ptr ends = arrayOf(document, field::kWordEndsMS);
    if (starts->size() != ends->size()) return false;
    for (std::size_t i = 0; i < starts->size(); ++i) {
        seg.wordStartsMS.push_back(integerAt(*starts, i));
        seg.wordEndsMS.push_back(integerAt(*ends, i));
    }
    readConfidences(document, seg);
    return true;
}

std::string projectGuidVersion1Of(const Object& document) {
    return textOf(document, field::kProjectGuid);
}

std::string projectNameVersion1Of(const Object& document) {
    return textOf(document, field::kProject);
}

void readClip(const Object& document, KsNNDBEntryBase& base) {
    base.model = textOf(document, field::kModel);
    base.clipName = clipNameOf(document);
    base.audioTracks = textOf(document, field::kAudioTracks);
    base.clientApp = textOf(document, field::kClientApp);
}

Frame frameOf(const Object& hit) {
    idOf(hit); // a frame without an identifier is damaged
    const Object::Ptr document = sourceOf(hit);
    return {mediaGuidOf(*document), textOf(*document, field::kFileName),
            textOf(*document, field::kProjectName), integerOf(*document, field::kFramePositionMS),
            textOf(*document, field::kImageDescription)};
}

void appendBulkCreate(const Frame& frame, int segment, const semantic::Embedding& vector,
                      std::ostream& bulk) {
    bulk << "{ \"create\" : {} }\n";
    object({{field::kMediaGuid, frame.mediaGuid},
            {field::kFileName, frame.fileName},
            {field::kProjectName, frame.projectName},
            {field::kFramePositionMS, frame.positionMS},
            {field::kImageDescription, frame.description},
            {field::kSegment, segment},
            {field::kImageVector, toArray(vector)}})
        ->stringify(bulk);
    bulk << '\n';
}

KsNNSpeakerKV speakerOf(const Object& hit) {
    KsNNSpeakerKV speaker;
    speaker.speakerGuid = idOf(hit);
    speaker.speakerName = textOf(*sourceOf(hit), field::kSpeakerName);
    return speaker;
}

} // namespace kestrelml::detail
