#pragma once

/// @file
/// Result codes, the records that cross the exported interface, and the base class of store and engines.
///
/// Strings are UTF-8. Times are milliseconds from the start of the clip unless said otherwise. All records
/// are plain values: they own what they hold and copy deeply.

#include "kestrelml/core/Export.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Poco {
class Exception;
}

/// Result of every public operation. No exception crosses the exported interface unless an operation says so.
enum KsNN_ErrorCode : std::int32_t {
    KsNN_Success = 0,   ///< The operation did what was asked.
    KsNN_Error = 1,     ///< The operation found a failure itself: status, answer, argument, or a failed step.
    KsNN_Exception = 2, ///< The transport or the cipher caught an exception.
    KsNN_SetupFailed = 3,  ///< The embedded interpreter could not be set up.
    KsNN_LockConflict = 4, ///< The clip's lock is not in the state needed. Never comes with a report.
};

/// Clip-level fields of a transcript; they are stored with segment 0.
struct KsNNDBEntryBase {
    std::string projectName = "Unk"; ///< Name of the project for which the entry is written or was read.
    std::string model = "Unk";       ///< Speech model that produced the transcript.
    std::string clipName = "Unk";    ///< The host's name of the clip.
    std::string audioTracks = "Unk"; ///< The host's description of the transcribed tracks, stored as given.
    bool progressComplete = false;   ///< True once every segment of the clip has been written.
    std::string clientApp = "Unk";   ///< Application that wrote the entry.
};

/// One segment of a transcript. `wordStartsMS` and `wordEndsMS` have one entry for each word of `transcript`.
struct KsNNDBEntrySeg {
    std::int32_t segment = -1;                ///< Index of the segment within the clip, from 0.
    std::string mediaGuid = "Unk";            ///< Identifier of the clip.
    std::string projectGuid = "Unk";          ///< Project for which the segment is written or was read.
    std::string transcript = "Unk";           ///< Text, words separated by spaces.
    std::string language = "Unk";             ///< Language code.
    std::string speakerID = "Unk";            ///< Speaker label within the clip.
    std::string speakerGuid = "Unk";          ///< Speaker record assigned to the segment.
    std::vector<std::int32_t> wordStartsMS;   ///< Start of each word.
    std::vector<std::int32_t> wordEndsMS;     ///< End of each word.
    std::vector<std::string> projectGuidList; ///< Every project that the stored document lists.
    /// How sure the recogniser is of each word, 0 to 100; empty when it does not say.
    std::vector<std::int32_t> wordConfidences;
};

struct KsNNProject {
    std::string projectName;
    std::string projectGuid;
};

/// One clip's transcript, as engines produce it and the store reads it back.
struct KsNNDB_STTClipEntry : KsNNDBEntryBase {
    std::vector<KsNNProject> projects;    ///< Projects that the clip's segment 0 lists.
    std::vector<KsNNDBEntrySeg> segments; ///< In ascending order of `segment`.
};

/// One hit of a search, or one row of a listing.
struct KsNNSearchResults {
    std::string text;        ///< Transcript of the segment as stored, or an image description.
    std::string mediaGuid;   ///< Clip of the hit.
    std::string projectGuid; ///< Project of the hit; empty for semantic hits.
    std::string detail;      ///< Reserved; always empty.
    float score = 0.0F;      ///< Match score; 0 in listings.
    float startMS = 0.0F;    ///< Start of the hit, a whole number of milliseconds.
    float endMS = 0.0F;      ///< End of the hit, a whole number of milliseconds.
};

/// A named speaker of a project.
class KSNN_API KsNNSpeakerKV {
public:
    KsNNSpeakerKV() = default;
    KsNNSpeakerKV(const KsNNSpeakerKV&) = default;
    KsNNSpeakerKV(KsNNSpeakerKV&&) = default;
    KsNNSpeakerKV& operator=(const KsNNSpeakerKV&) = default;
    KsNNSpeakerKV& operator=(KsNNSpeakerKV&&) = default;
    virtual ~KsNNSpeakerKV();

    std::string speakerGuid; ///< Identifier of the speaker document.
    std::string speakerName; ///< Display name.
    std::string projectName; ///< Name of the project that the speaker belongs to.
    std::string projectGuid; ///< Identifier of that project.
};

/// A language that a speech engine supports.
struct KsNNLanguage {
    std::string code;           ///< Key under which the engine reports it.
    std::string localName;      ///< Name in the language itself.
    std::string anglicizedName; ///< English name.
};

/// What `TranscribeAudio` does to the recogniser's text.
struct KsNNPostProcessingOptions {
    bool removeSymbols = false;
    bool removeAudioDescriptions = false;
    bool makePhrases = false;
};

struct KsNNTranscriptWord {
    std::int32_t startMs = 0;
    std::int32_t endMs = 0;
    std::string word;
    float probability = 0.0F; ///< The recogniser's confidence, 0 to 1.
};

struct KsNNTranscriptSegment {
    std::string text;
    std::string language;
    std::string speakerID;
    std::vector<KsNNTranscriptWord> words;
};

/// Post-processed transcript, as `TranscribeAudio` returns it.
struct KsNNTranscript {
    std::string model;
    std::string device;
    std::vector<KsNNTranscriptSegment> segments; ///< In time order.
};

/// Display time codes of one segment, supplied by the host for dumps.
struct KsNNTC {
    std::string start;
    std::string end;
};

/// Layout of a transcript dump.
enum KsNNFileExportType : std::int32_t {
    KsNNExportStatusLine =
        0,                   ///< Check listing: summary line, speaker and time code blocks, words with times.
    KsNNExportText = 1,      ///< Readable transcript.
    KsNNExportSubtitles = 2, ///< Subtitle script.
};

/// Where text embeddings come from.
enum KsNNDBSemanticSearchImpl : std::int32_t {
    KsNNSemanticLocalService = 0, ///< The local speech and embedding service.
    KsNNSemanticInterpreter = 1,  ///< The embedded interpreter.
    KsNNSemanticOnnx = 2,         ///< ONNX models in this process.
};

/// Progress of a long operation: current, total, text. A non-zero result ends the operation with that result.
using KsNNProgressCallback = std::function<KsNN_ErrorCode(int, int, const char*)>;

/// Base of the store and of the speech engines: the text of the last failure, the last request in printable
/// form, and the address of the service that the object talks to.
///
/// Every operation of an object writes these, so one object is used by one thread at a time. Distinct objects
/// are independent.
class KSNN_API KsNNBase {
public:
    /// @param uri Base address of the service, NUL-terminated. Paths are appended as they stand, so it ends
    /// in "/".
    explicit KsNNBase(const char* uri);
    KsNNBase(const KsNNBase&) = default;
    KsNNBase(KsNNBase&&) = default;
    KsNNBase& operator=(const KsNNBase&) = default;
    KsNNBase& operator=(KsNNBase&&) = default;
    virtual ~KsNNBase();

    void SetErrorStr(std::string text);
    void ResetErrorStr();
    /// Report of the last failure; empty after a success. Valid until the object's next operation.
    const std::string& GetErrorStr() const;

    void SetLastRESTCall(std::string line);
    /// The last request as a command line for `curl`. It always names the built-in debug user.
    std::string GetLastRESTCall() const;

    std::string GetURI() const;
    void SetURI(const char* uri);

private:
    std::string mErrorStr;
    std::string mLastRESTCall;
    std::string mURI;
};

/// Formats a failure report. Internal.
///
/// @param caught   Exception that caused the failure, or null.
/// @param message  Text of the report, or null. An empty text still makes a block.
/// @param location Source line of the reporting statement.
/// @param target   Object whose error text becomes the report, or null.
/// @param debug    Also write the report to standard output.
void reportError(const Poco::Exception* caught, const char* message, unsigned location, KsNNBase* target,
                 bool debug);
