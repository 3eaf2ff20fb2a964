#pragma once

/// @file
/// The documents of the store: the names of their fields, the conditions that find them, and the way from a
/// record to a document and back. Nothing else in the library knows these names. Internal.
///
/// Readers throw a Poco exception that names the field when one is missing or of another kind.

#include "kestrelml/core/KsNNBase.h"
#include "kestrelml/semantic/Embedding.h"
#include "kestrelml/store/Query.h"

#include <ostream>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// Names of fields as they stand in documents.
namespace field {

// Every segment of a transcript.
inline constexpr const char* kSegment = "segment";
inline constexpr const char* kMediaGuid = "mediaGuid";
inline constexpr const char* kTranscript = "transcript";
inline constexpr const char* kWordStartsMS = "wordStartsMS";
inline constexpr const char* kWordEndsMS = "wordEndsMS";
inline constexpr const char* kWordConfidences = "wordConfidences"; // optional
inline constexpr const char* kLanguage = "language";
inline constexpr const char* kSpeakerID = "speakerID";
inline constexpr const char* kSpeakerGuid = "speakerGuid";
inline constexpr const char* kProjectGuidList = "projectGuidList"; // version 2

// Segment 0 only.
inline constexpr const char* kModel = "model";
inline constexpr const char* kClipName = "clipName";
inline constexpr const char* kAudioTracks = "audioTracks";
inline constexpr const char* kProgressComplete = "progressComplete";
inline constexpr const char* kClientApp = "clientApp";
inline constexpr const char* kSchemaVersion = "schemaVersion"; // version 2
inline constexpr const char* kProject = "project";             // version 1

// Projects of a clip or a speaker. Elements of the list; in version 1 the project of every segment.
inline constexpr const char* kProjectList = "projectList";
inline constexpr const char* kProjectGuid = "projectGuid";
inline constexpr const char* kProjectName = "projectName";
inline constexpr const char* kProjectListGuid = "projectList.projectGuid";
inline constexpr const char* kProjectListName = "projectList.projectName";

// Lock.
inline constexpr const char* kLock = "KSNNlock";

// Speaker.
inline constexpr const char* kSpeakerName = "speakerName";

// Frame of the semantic index, besides media and project.
inline constexpr const char* kImageVector = "semanticImageVector";
inline constexpr const char* kFileName = "fileName";
inline constexpr const char* kFramePositionMS = "framePositionMS";
inline constexpr const char* kImageDescription = "imageDescription";

// What the service adds to each document.
inline constexpr const char* kId = "_id";

} // namespace field

/// The sub-field by which the service compares a text as a whole.
std::string exact(const char* field);

/// Schema versions of transcripts. Version 1 stores a clip once for each of its projects.
inline constexpr int kVersion1 = 1;
inline constexpr int kVersion2 = 2;
bool isKnownVersion(int version);

/// Names of the indices that hold version 1: of debug installations, of others.
inline constexpr const char* kDebugIndexVersion1 = "transcript_index";
inline constexpr const char* kIndexVersion1 = "transcript_index_rel";
/// The index of version 2 unless the host names another or a language.
inline constexpr const char* kDefaultTranscriptIndex = "transcript_oai_small_multi_index";
bool isIndexOfVersion1(const std::string& index);

/// In place of a project identifier: every project.
inline constexpr const char* kAnyProject = "ANY";
/// In place of a project or clip identifier in listings and deletion: all of them.
inline constexpr const char* kAll = "ALL";
/// The project of imported clips until a real one takes its place.
inline constexpr const char* kImportProjectGuid = "KST_Import_ProjectGuid";
inline constexpr const char* kImportProjectName = "KST_Import_ProjectName";

/// Settings and mapping of every index that the store creates.
Object::Ptr indexDefinition();

/// @name Conditions on segments
/// @{
Object::Ptr ofClip(const std::string& mediaGuid);
Object::Ptr ofClipName(const std::string& clipName);
Object::Ptr ofProject(const std::string& projectGuid, int version = kVersion2);
Object::Ptr ofSegment(int segment);
Object::Ptr ofSpeaker(const std::string& speakerGuid);
Object::Ptr withSpeakerLabel(const std::string& speakerID);
Object::Ptr withProgressComplete(bool complete);
Object::Ptr ofAnyClip(const std::vector<std::string>& mediaGuids);
/// One condition for each of the identifiers.
Array::Ptr ofEachClip(const std::vector<std::string>& mediaGuids);
Array::Ptr ofEachProject(const std::vector<std::string>& projectGuids);
/// @}

/// @name Other conditions
/// @{
Object::Ptr isLock();
Object::Ptr ofDocument(const std::string& id);
Object::Ptr speakerOfProject(const std::string& projectGuid);
/// @}

/// {"doc": {field: value}}, the body that changes one field of a document.
Object::Ptr changeOf(const std::string& field, const Var& value);

/// @name Records to documents
/// @{
/// One segment, with the clip's fields if it is segment 0.
Object::Ptr documentVersion1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg);
/// The same in version 2, for the one project that `seg` and `base` name.
Object::Ptr documentVersion2(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg);
/// Appends the two lines of a bulk request that create `seg`, a segment of `entry`, for all projects of both.
void appendBulkCreate(const KsNNDB_STTClipEntry& entry, const KsNNDBEntrySeg& seg, std::ostream& bulk);
Object::Ptr projectDocument(const std::string& projectGuid, const std::string& projectName);
Object::Ptr speakerDocument(const KsNNSpeakerKV& speaker);
Object::Ptr lockDocument();
/// @}

/// @name Documents to records
/// @{
int segmentOf(const Object& document);
std::string mediaGuidOf(const Object& document);
std::string transcriptOf(const Object& document);
std::string languageOf(const Object& document);
std::string speakerLabelOf(const Object& document);
std::vector<std::string> projectGuidsOf(const Object& document);
std::vector<KsNNProject> projectsOf(const Object& document);
bool isComplete(const Object& document);
bool hasSpeakerLabel(const Object& document);
bool isVersion2(const Object& document);
bool hasSpeaker(const Object& document);
std::string speakerGuidOf(const Object& document);
std::string clipNameOf(const Object& document);
bool isLockDocument(const Object& document);

/// Reads what every version has, but for speaker, projects and times.
KsNNDBEntrySeg readText(const Object& document);
/// Reads the assigned speaker, if there is one.
void readSpeaker(const Object& document, KsNNDBEntrySeg& seg);
/// Reads the words' times. Reads nothing and returns false unless there are as many ends as starts.
[[nodiscard]] bool readTimes(const Object& document, KsNNDBEntrySeg& seg);
/// Reads the project of a version 1 document: of every segment, its name of segment 0.
std::string projectGuidVersion1Of(const Object& document);
std::string projectNameVersion1Of(const Object& document);
/// Reads the clip's fields of segment 0, but for projects and completion.
void readClip(const Object& document, KsNNDBEntryBase& base);

/// What a frame of the semantic index shows, and where.
struct Frame {
    std::string mediaGuid;
    std::string fileName;
    std::string projectName;
    int positionMS = 0;
    std::string description;
};
Frame frameOf(const Object& hit);
/// Appends the two lines of a bulk request that create the frame of a transcript's segment.
void appendBulkCreate(const Frame& frame, int segment, const semantic::Embedding& vector, std::ostream& bulk);

/// Makes a speaker from a hit of the speaker index; the project fields stay empty.
KsNNSpeakerKV speakerOf(const Object& hit);
/// @}

} // namespace kestrelml::detail
