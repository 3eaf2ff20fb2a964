#pragma once

/// @file
/// The transcript store: writing, locking, reading, searching and sharing transcripts in an
/// Elasticsearch-compatible index.

#include "kestrelml/core/Export.h"
#include "kestrelml/core/KsNNBase.h"
#include "kestrelml/store/KsNNClipSearch.h"
#include "kestrelml/store/KsNNPhraseSearch.h"

#include <unicode/unistr.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

U_NAMESPACE_BEGIN
class Transliterator;
U_NAMESPACE_END

namespace Ort {
struct Env;
struct Session;
} // namespace Ort
namespace kestrelml::semantic {
class TextModels;
}

class KsNNAlignment;
class KsNNTextLines;

namespace kestrelml::detail {
class Operation;
}

/// Handle on the transcript store.
///
/// A clip's transcript is one document per segment. To write one: `LockEntry`, `WriteToDB` for segment 0, 1,
/// 2 … in order, `SetProgressComplete`, `UnlockEntry`.
///
/// Index names, language, credentials and the search normaliser are shared by all stores of the process and
/// are not locked: set them before concurrent work begins. One object is used by one thread at a time.
///
/// The last parameter of most operations, `debug`, only adds diagnostics on standard output. Unless said
/// otherwise, operations that read refresh the index first, and a missing index reads as an empty store.
///
/// **Results.** Every operation that sends requests returns
/// - `KsNN_Success` when it did what was asked;
/// - `KsNN_Error` when the service answered with a status or a content that the operation cannot use;
/// - `KsNN_Exception` when no JSON object came as an answer (connection refused or lost, timeout of
///   10 seconds, HTML in place of JSON), or when the stored credentials cannot be decrypted with the
///   stored key.
///
/// After the last two `GetErrorStr` tells more. The comment of an operation names what it returns besides,
/// and when. No exception leaves an operation unless its comment has `@throws`.
///
/// **Half-done work.** The service changes one document after the other. An operation of several requests
/// that fails leaves what its earlier requests changed; its comment says what that is and how to go on.
class KSNN_API KsNNDatabase : public KsNNBase {
public:
    /// @param uri                   Service URI ending in "/"; empty means HTTPS on the loopback address,
    /// port 9281.
    /// @param transcriptIndex       Index of transcripts; null or empty keeps the current one.
    /// @param languageCode          Language of the store; when given it also chooses the transcript index.
    /// @param semanticIndex         Index of image embeddings; null or empty keeps the current one.
    /// @param ownsInterpreterBridge Destroying this object shuts the embedded interpreter's bridge down.
    ///
    /// Creates the speaker index when it is missing. Never fails; a service that is down leaves a report.
    KsNNDatabase(const char* uri, const char* transcriptIndex, const char* languageCode,
                 const char* semanticIndex, bool ownsInterpreterBridge);
    KsNNDatabase(const KsNNDatabase&) = default;
    KsNNDatabase& operator=(const KsNNDatabase&) = default;
    ~KsNNDatabase() override;

    /// @name Service and indices
    /// @{

    /// Probes the service. `KsNN_Error` also when it refuses the login (401) or is no index service.
    KsNN_ErrorCode testDefault(bool debug);
    /// Creates `index` with the store's mapping unless it exists. `KsNN_Error` without a report when the
    /// service creates it and does not have it afterwards.
    KsNN_ErrorCode CreateIndex(const std::string& index, bool debug);
    /// Tells whether `index` exists; false after a failure.
    KsNN_ErrorCode CheckIndex(bool& exists, const std::string& index, bool debug);
    /// Deletes `index` with all its documents; a missing one is a success. `KsNN_Error` also when it is still
    /// there afterwards.
    KsNN_ErrorCode DeleteIndex(const std::string& index, bool debug);

    static void setTranscriptIndex(const std::string& index);
    static void setSemanticIndex(const std::string& index);
    /// Sets language and transcript index; an empty code changes nothing.
    static void setLanguage(const std::string& code);
    static std::string getTranscriptIndex();
    static std::string getSpeakerIndex();
    static std::string getSemanticIndex();

    /// Identifiers for a scratch entry that belongs to no clip or project yet.
    std::string getTempMediaGUID() const;
    std::string getTempProjectGUID() const;
    std::string getTempProjectName() const;
    /// @}

    /// @name Credentials
    /// These send nothing. docs/hosts.md shows how a host hands over its login, and what a 401 looks like.
    /// @{

    /// Stores credentials for every later request of every store.
    /// @param encryptedUser User name as `IEncryptStream` writes it under `key`.
    /// @param encryptedPass Password, likewise.
    /// @param key           Pass phrase that decrypts both.
    /// @param debugIndex    Suffix the transcript index with "_dbg" instead of "_rel".
    /// @returns `KsNN_Success`; `KsNN_Error` when one of the three is empty: then nothing changes.
    KsNN_ErrorCode SetCredentials(const std::string& encryptedUser, const std::string& encryptedPass,
                                  const std::string& key, bool debug, bool debugIndex);
    static std::string getEncryptedUser();
    static std::string getEncryptedPass();
    static std::string getKey();
    /// Encrypts all of `plain` under the stored key and appends Base64 text to `encrypted`.
    /// @returns `KsNN_Success`; `KsNN_Error` when no key is stored; `KsNN_Exception` when the cipher fails.
    KsNN_ErrorCode IEncryptStream(std::stringstream& plain, std::stringstream& encrypted, bool debug);
    /// The reverse. Empty input is a success that writes nothing and leaves a warning in the error text.
    /// @returns as `IEncryptStream`; `KsNN_Exception` also for another key and for damaged input.
    KsNN_ErrorCode IDecryptStream(std::stringstream& encrypted, std::stringstream& plain, bool debug);
    /// @}

    /// @name Locks
    /// A lock is a document; taking it is atomic across processes. It has no owner and no expiry.
    /// @{

    /// Takes the clip's lock. `KsNN_LockConflict` when it is taken; `KsNN_Error` for an empty identifier.
    KsNN_ErrorCode LockEntry(const std::string& mediaGuid, bool debug);
    /// Tells whether the clip is locked. `KsNN_Error` when the index is missing.
    KsNN_ErrorCode GetLockState(const std::string& mediaGuid, bool& locked, bool debug);
    /// Releases the clip's lock, whoever holds it. `KsNN_LockConflict` when nobody does; `KsNN_Error` when
    /// the index is missing.
    KsNN_ErrorCode UnlockEntry(const std::string& mediaGuid, bool debug);
    /// Releases one page (ten) of the locks that exist; a failure leaves the rest of them.
    KsNN_ErrorCode UnlockAllEntries(bool debug);
    /// Appends one page (ten) of the locked clips to `mediaGuids`. Creates a missing index.
    KsNN_ErrorCode FindAllLockedMediaGuids(std::vector<std::string>& mediaGuids, bool debug);
    /// @}

    /// @name Writing
    /// @{

    /// Writes one segment. A segment that the project has already is left alone: `KsNN_Success`.
    ///
    /// `KsNN_Error` for segment 0 without the clip's lock, and, without a report, for a clip that is
    /// complete: add its transcript to another project with `AppendProjectToEntry`. A write whose answer was
    /// lost may have happened; writing again is safe.
    KsNN_ErrorCode WriteToDB(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug);
    /// Writes one segment in schema version 1, for stores that have not been migrated. Checks neither the
    /// lock nor completion.
    KsNN_ErrorCode WriteToDBVer1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug);
    /// @}

    /// @name Progress and counts
    /// `version` is the schema version, 1 or 2; another is `KsNN_Error`. In version 2 the project "ANY" means
    /// every project.
    /// @{

    /// Counts the segments of a clip. A missing index leaves `count` as it is.
    KsNN_ErrorCode GetSegmentCount(const std::string& mediaGuid, const std::string& projectGuid, int& count,
                                   bool debug, int version);
    /// Counts every document of the transcript index, locks included.
    KsNN_ErrorCode GetTotalSegmentCount(int& count, bool debug);
    /// Tells whether the clip is complete; a clip without segments is not. `KsNN_Error`, possibly without a
    /// report, also when it has not exactly one segment 0.
    KsNN_ErrorCode GetProgressComplete(const std::string& mediaGuid, const std::string& projectGuid,
                                       bool& complete, bool debug, int version);
    /// Marks the clip complete; a clip without segments is left alone. An empty project means "ANY".
    /// `KsNN_Error` also when it has not exactly one segment 0.
    KsNN_ErrorCode SetProgressComplete(const std::string& mediaGuid, bool debug, int version,
                                       std::string projectGuid);
    /// @}

    /// @name Reading
    /// @{

    /// Reads a clip, at most 10,000 segments. Clears `entry.segments`, appends to `entry.projects`.
    ///
    /// `KsNN_Error` also for an unknown `version` and for a document that is not as the store writes it; then
    /// `entry` keeps the segments before it.
    KsNN_ErrorCode GetDBContents(const std::string& mediaGuid, const std::string& projectGuid,
                                 KsNNDB_STTClipEntry& entry, bool debug, int version);
    /// Reads a clip of schema version 2 with all of its segments, 10,000 by each request; otherwise as
    /// `GetDBContents`.
    KsNN_ErrorCode GetWholeClip(const std::string& mediaGuid, const std::string& projectGuid,
                                KsNNDB_STTClipEntry& entry, bool debug);
    /// Reads the words between two times, which become relative to `startMS`. `KsNN_Error` also when `endMS`
    /// lies before `startMS`.
    KsNN_ErrorCode GetDBContentsRange(const std::string& mediaGuid, const std::string& projectGuid,
                                      int startMS, int endMS, KsNNDB_STTClipEntry& entry, bool debug);
    /// Keeps the words that lie mostly inside [`startMS`, `endMS`]; one empty segment when there is none.
    /// @returns `KsNN_Success`; `KsNN_Error` when ICU has no word break rules.
    static KsNN_ErrorCode sliceEntries(int startMS, int endMS, KsNNDB_STTClipEntry& entry);
    /// Appends the segments of `source`, their words shifted by `offsetMS`.
    /// @returns `KsNN_Success`.
    static KsNN_ErrorCode appendEntry(const KsNNDB_STTClipEntry& source, int offsetMS,
                                      KsNNDB_STTClipEntry& target);
    /// @}

    /// @name Phrase search
    /// @{

    /// Finds where a phrase is spoken in the clips of a project, with misspellings.
    /// @param text        Phrase.
    /// @param projectGuid Project to search.
    /// @param threshold   Lowest score of a hit, 0 to 1; 1 finds what is equal in normal form only.
    /// @param results     Receives hits after what it holds, in the index's order of relevance.
    /// @param maxResults  Number of segments to look at; 0 or less leaves it to the index (10).
    ///
    /// `KsNN_Error` also for a segment that is not as the store writes it; the hits before it stay.
    KsNN_ErrorCode Search(const std::string& text, const std::string& projectGuid, float threshold,
                          std::vector<KsNNSearchResults>& results, int maxResults, bool debug);

    /// Finds the same places as `Search`, in a whole project or a part of it, and tells all that is known of
    /// each: clip, segment, speaker, matched words, exact times. Appends to `hits`, which keep the index's
    /// order of relevance.
    ///
    /// `KsNN_Error` also for a segment that is not as the store writes it; the hits before it stay, without
    /// the names of their clips.
    KsNN_ErrorCode FindPhrase(const KsNNPhraseQuery& query, std::vector<KsNNPhraseHit>& hits, bool debug);

    /// Replaces `text` by its normal form for search: no case, accents, punctuation or repeated spaces.
    /// @throws std::runtime_error when the normaliser could not be created.
    static void normalizeForSearch(icu::UnicodeString& text);
    /// Appends the words of `text`, as the word break rules of `language` (an ICU locale) see them.
    /// @throws std::runtime_error when ICU has no word break rules.
    static void get_words_in_string(const icu::UnicodeString& text, const std::string& language,
                                    std::vector<icu::UnicodeString>& words);
    /// Appends start and end (exclusive) of each of these words, in UTF-16 units.
    /// @throws std::runtime_error when ICU has no word break rules.
    static void get_word_indices_in_string(const icu::UnicodeString& text, const std::string& language,
                                           std::vector<int>& starts, std::vector<int>& ends);
    /// Self-test of phrase matching and alignment and, when both arguments are given, of the route
    /// `KsNNSemanticOnnx`; the models are forgotten afterwards.
    /// @returns `KsNN_Success`; `KsNN_Error` with the first check that failed.
    /// @throws std::exception as the operations that it tests.
    KsNN_ErrorCode testInternals(std::string modelDir, std::string extensionLibrary);
    /// @}

    /// @name Project membership
    /// A clip's segment 0 lists its projects with their names, every segment lists their identifiers.
    /// Imported clips belong to a placeholder project; the first project added takes its place. These need
    /// schema version 2: `KsNN_Error` for an index of version 1.
    /// @{

    /// Adds a project to a stored clip. The clip must be locked (`KsNN_Error` otherwise) and the index exist.
    /// @param segment -1 for the whole clip. 0 for segment 0 with both its lists, another number for the list
    ///                of identifiers of that segment alone.
    ///
    /// Does not check whether the project is there: one that is appended twice is listed twice, until it is
    /// removed. When the second of its two updates fails, segment 0 names the project and the segments do not
    /// list it: remove the project, then append it again.
    KsNN_ErrorCode AppendProjectToEntry(const std::string& mediaGuid, const std::string& projectGuid,
                                        const std::string& projectName, const int& segment, bool debug);
    /// Removes a project from a stored clip, however often it is listed. Needs no lock; `KsNN_Error` when the
    /// index is missing. Deletes nothing: a clip without any project stays (`DeleteEntry` deletes it).
    /// When the second of its two updates fails, removing again completes it.
    KsNN_ErrorCode RemoveProjectFromEntry(const std::string& mediaGuid, const std::string& projectGuid,
                                          bool debug);
    /// Makes a clip and its speakers known to a project; a clip that is in the project already is left alone.
    /// The clip must be locked (`KsNN_Error` otherwise).
    ///
    /// The speakers are those found in the segments of the *new* project once the clip is in it, at most ten.
    /// A failure after the clip was added leaves it in the project, with some of its speakers not: since the
    /// clip is a member by then, calling again does not add them.
    KsNN_ErrorCode AddNewProjectToProjectList(const std::string& mediaGuid, const std::string& projectGuid,
                                              const std::string& projectName, bool debug);
    /// @}

    /// @name Catalogue
    /// @{

    /// Appends every project that a clip names, the one with most clips first, at most 10,000.
    KsNN_ErrorCode GetAllEntries(std::vector<KsNNProject>& projects, bool debug);
    /// Lists the clips of a project whose transcription is complete. Clears `mediaGuids`; a failure leaves
    /// the pages before it.
    /// @param projectGuid Project; "ALL" for every clip of the store.
    /// @param pageSize    Clips for each request, 1 to 10,000; less is `KsNN_Error`.
    KsNN_ErrorCode GetAllMediaGuids(const std::string& projectGuid, std::vector<std::string>& mediaGuids,
                                    bool debug, int pageSize);
    /// Appends clip, project and text of segments 0 whose clip is not complete, one for each of its projects.
    /// Looks at one page (ten) of them.
    KsNN_ErrorCode GetAllInprogressEntries(std::vector<KsNNSearchResults>& results, bool debug);
    /// Appends the clips that meet the query, complete or not, in no particular order, and what is known of
    /// each. Reads no transcripts: what a clip contains is counted by the service. A failure leaves the clips
    /// before it, the last thousand of them without their contents.
    KsNN_ErrorCode FindClips(const KsNNClipQuery& query, std::vector<KsNNClipSummary>& clips, bool debug);
    /// @}

    /// @name Deletion
    /// @{

    /// Removes clips from a project: one that no other project uses is deleted, another only leaves the
    /// project.
    /// @param mediaGuid Clip; "ALL" for every clip of the project. Then documents of these clips that
    ///                  list the project are deleted in every index of the service, not only in the
    ///                  transcript index.
    /// @param pageSize  Clips for each request, 1 to 10,000; less is `KsNN_Error`.
    /// @param progress  Called before each clip with its position on the page, twice, and an empty text. A
    ///                  result other than `KsNN_Success` ends the operation with that result.
    ///
    /// A failure leaves the clips before it removed and the others as they are; calling again goes on.
    KsNN_ErrorCode DeleteEntry(const std::string& mediaGuid, const std::string& projectGuid, bool debug,
                               int pageSize, KsNNProgressCallback progress);
    /// Deletes clips from the transcript index, whatever projects use them. Does not refresh: segments
    /// written a moment ago may be left.
    KsNN_ErrorCode HardDeleteEntries(std::vector<std::string> mediaGuids, bool debug);
    /// Deletes transcripts that were never completed, as `DeleteEntry` does, one page (ten) of them. Waits up
    /// to four seconds for a service that does not answer. Clips that are being transcribed are among them.
    KsNN_ErrorCode DeleteAllInProgressEntries(bool debug);
    /// @}

    /// @name Speakers
    /// A speaker is a document of the speaker index, known to projects. A segment has the label that
    /// diarization gave it and, once it is assigned, a speaker.
    /// @{

    /// Creates a speaker from name and project and sets `speaker.speakerGuid`. Searches find it after the
    /// next refresh. Asking again after a lost answer may create it twice.
    KsNN_ErrorCode SpeakerCreateNew(KsNNSpeakerKV& speaker, bool debug);
    /// Lists the speakers that segments of the project are assigned to, at most ten. Clears `speakers`; their
    /// project fields stay empty. `KsNN_Error` also when the speaker index lacks one of them.
    KsNN_ErrorCode SpeakerGetList(const std::string& projectGuid, std::vector<KsNNSpeakerKV>& speakers,
                                  bool debug);
    /// Reads a speaker's name. `KsNN_Error` also for an unknown speaker; a missing index leaves the name as
    /// it is.
    KsNN_ErrorCode GetSpeakerName(const std::string& speakerGuid, std::string& speakerName, bool debug);
    /// Appends one page (ten) of the speakers of all projects.
    KsNN_ErrorCode GetAllSpeakersInSpeakerIndex(std::vector<std::string>& speakerGuids, bool debug);
    /// Appends the speakers known to a project, assigned or not, at most 10,000; their project fields stay
    /// empty.
    KsNN_ErrorCode GetAllSpeakersInProject(const std::string& projectGuid,
                                           std::vector<KsNNSpeakerKV>& speakers, bool debug);
    /// Makes every speaker of a clip known to a project, those that it knows already as before.
    /// `AddNewProjectToProjectList` does it for ten. Calling again after a failure does what is left.
    KsNN_ErrorCode ShareSpeakers(const std::string& mediaGuid, const std::string& projectGuid,
                                 const std::string& projectName, bool debug);
    /// Tells whether a segment of the project is assigned to the speaker. A missing index leaves `found` as
    /// it is.
    KsNN_ErrorCode FindReferencesOfSpeaker(const std::string& speakerGuid, const std::string& projectGuid,
                                           bool& found, bool debug);
    /// Removes a speaker from a project, and deletes it when that was its last. `KsNN_Error` while a segment
    /// of the project is assigned to it. When the speaker has left the project and the deletion fails, a
    /// speaker without projects stays; calling again completes it.
    KsNN_ErrorCode SpeakerDelete(const std::string& projectGuid, const std::string& speakerGuid, bool debug);
    /// @}

    /// @name Speakers of segments
    /// Those that take a segment return `KsNN_Error` when the clip has no such segment in the project.
    /// @{

    /// Sets one text field of a document of the transcript index. The fourth argument is not used.
    KsNN_ErrorCode SpeakerUpdateEntryField(const std::string& documentId, const std::string& field,
                                           const std::string& value, bool, bool debug);
    /// Assigns one segment to `speaker`. `KsNN_Error` when `speaker.speakerGuid` is empty.
    KsNN_ErrorCode SpeakerSetSegName(const std::string& mediaGuid, const std::string& projectGuid,
                                     KsNNSpeakerKV& speaker, int segment, bool debug);
    /// Changes the label of one segment.
    KsNN_ErrorCode CorrectSpeakerID(const std::string& mediaGuid, const std::string& projectGuid,
                                    const std::string& speakerID, int segment, bool debug);
    /// Assigns every segment of the clip that has the label of `segment` to `speaker`, in ascending order. A
    /// failure leaves the segments before it assigned; calling again is safe.
    KsNN_ErrorCode SpeakerRenameAllSegments(const std::string& mediaGuid, const std::string& projectGuid,
                                            KsNNSpeakerKV& speaker, int segment, bool debug);
    /// Renames the speaker `speaker.speakerGuid`, for all projects, and sets `speaker.speakerName`.
    KsNN_ErrorCode SpeakerRenameBasedOnSpeakerGuid(KsNNSpeakerKV& speaker, const std::string& newName,
                                                   bool debug);
    /// Makes one speaker of two in a project: assigns their segments, at most 10,000, to `keepGuid`, then
    /// removes the others from the project. A failure leaves some segments assigned; calling again is safe.
    KsNN_ErrorCode MergeSpeakersInProject(const std::string& projectGuid, const std::string& firstGuid,
                                          const std::string& secondGuid, const std::string& keepGuid,
                                          bool debug);
    /// The second half of a merge: removes those of the two speakers that are not `keepGuid` from the
    /// project.
    KsNN_ErrorCode DeleteSpeakerGuidInMerge(const std::string& projectGuid, const std::string& firstGuid,
                                            const std::string& secondGuid, const std::string& keepGuid,
                                            bool debug);
    /// Clears the speaker from the segments of a clip, of a project, that are assigned to it. Labels stay.
    KsNN_ErrorCode ClearSpeakerIDForEntireClip(const std::string& mediaGuid, const std::string& speakerGuid,
                                               bool debug);
    KsNN_ErrorCode ClearSpeakerIDForEntireProject(const std::string& projectGuid,
                                                  const std::string& speakerGuid, bool debug);
    /// Clears the speaker from one segment; one that has none is a success.
    KsNN_ErrorCode ClearSpeakerIDPerSeg(const std::string& mediaGuid, int segment, bool debug);
    /// @}

    /// @name Old stores
    /// @{

    /// Copies a store of schema version 1 into an index of version 2, makes that the transcript index, and
    /// empties the old one. An index of version 2 that exists counts as migrated: the old one is emptied.
    /// @param testMode  Migrate the debug installation's index instead.
    /// @param progress  Called before each document with its number, the number of documents, and an empty
    ///                  text. A result other than `KsNN_Success` ends the operation with that result.
    /// @param batchSize Documents for each request, 1 to 10,000; less is `KsNN_Error`.
    ///
    /// The whole store is held in memory. Whatever fails, or a cancel, leaves the old index whole and makes
    /// it the transcript index; the new one is deleted. Only once all documents are written is the old index
    /// emptied; if that fails the new one is whole, and calling again completes it.
    KsNN_ErrorCode MigrateDatabaseVersion1to2(bool testMode, bool debug, KsNNProgressCallback progress,
                                              int batchSize);
    /// Creates the service's roles and the debug user for the indices of version 2, unless the transcript
    /// index exists: then `updated` is false and nothing is sent. A failure leaves the roles before it.
    KsNN_ErrorCode UpdateDBUsersVersion1to2(bool& updated, bool debug);
    /// Removes these roles and the debug user, in this order; stops at the first that the service does not
    /// remove, for instance because it is not there.
    KsNN_ErrorCode DowngradeDBUsersVersion2to1(bool debug);
    /// @}

    /// @name Exchange
    /// @{

    /// Writes clips into an encrypted exchange file.
    /// @param mediaGuids   Clips to export; when empty, the clips of `projectGuids`.
    /// @param projectGuid  Project that the clips of `mediaGuids` must belong to.
    /// @param path         File, UTF-8; replaced when it exists.
    /// @param counter      Advanced by the number of documents and, with `progress`, of requests.
    /// @param progress     Called before each request with `counter`, the number of documents in the
    ///                     transcript index, and an empty text. A result other than `KsNN_Success` ends
    ///                     the operation with that result.
    /// @param plainCopy    Also write the content unencrypted, to `path` followed by ".gtest".
    /// @param pageSize     Documents for each request, 1 to 10,000; less is `KsNN_Error`.
    ///
    /// `KsNN_Error` also when the file cannot be written. A failure leaves what was there before.
    /// Without a key (`SetCredentials`) it is a success that writes an empty file and leaves a report in
    /// the error text.
    KsNN_ErrorCode ExportDBContentsToKST(std::vector<std::string> mediaGuids, std::string projectGuid,
                                         std::vector<std::string> projectGuids, std::string path,
                                         int& counter, KsNNProgressCallback progress, bool debug,
                                         bool plainCopy, int pageSize);
    /// Reads an exchange file into the store, in place of complete clips that it has already.
    /// @param path        File, UTF-8.
    /// @param projectGuid Project that imported clips may be filed under, beside those that the store has. A
    ///                    clip of none of them is filed under a placeholder.
    /// @param projectName Its name.
    /// @param progress    Called with a rising number, the number at the end, and what is being done.
    ///                    A result other than `KsNN_Success` ends the operation with that result; at
    ///                    the last call, the clips that were to be replaced are deleted by then.
    ///
    /// The transcript index must exist (`CreateIndex`): the service would make it without the store's
    /// mapping. `KsNN_Error` also for a file that cannot be read, is damaged, encrypted under another key, or
    /// of another schema version; then nothing has changed. A failure of the last request leaves the clips
    /// that were to be replaced deleted; importing again writes them, but not into projects that only the
    /// store knew of.
    KsNN_ErrorCode ImportDBContentsFromKST(std::string path, std::string projectGuid, std::string projectName,
                                           KsNNProgressCallback progress, bool debug);
    /// Writes a transcript to a text file, which is replaced when it exists.
    /// @param entry       Clip as `GetDBContents` reads it.
    /// @param path        File, UTF-8.
    /// @param timecodes   One for each segment; another number is `KsNN_Error`, and the file is not touched.
    /// @param projectName Project to name; empty for the entry's.
    ///
    /// Looks up the names of assigned speakers. `KsNN_Error` also when the file cannot be written, a speaker
    /// is unknown, or the layout; then the file holds what was written before.
    /// @throws std::runtime_error in the check layout, when the search normaliser could not be created.
    KsNN_ErrorCode DumpDBContentsToFile(KsNNDB_STTClipEntry& entry, std::string& path,
                                        KsNNFileExportType layout, std::vector<KsNNTC>& timecodes, bool debug,
                                        std::string projectName);
    /// @}

    /// @name Search by meaning
    /// The semantic index holds a vector for each frame of a clip, or for each segment of what is said. A
    /// query becomes a vector of the same space; near vectors mean much the same, whatever the language.
    /// @{

    /// Loads the models that queries become vectors with; once for each route, before the first search.
    /// @param modelDir         Folder of "openclip_model_uint8.onnx" and "xlm_roberta_base_tokenizer.onnx".
    /// @param extensionLibrary ONNX Runtime's library of extension operators, for the service and the
    ///                         interpreter. The route of this process takes the one beside this library.
    /// @returns `KsNN_Success`; `KsNN_Error` when the models cannot be loaded, or when there is no such route
    /// (then without a report); `KsNN_SetupFailed` without an interpreter; `KsNN_Exception` when the service
    /// cannot be reached.
    /// @throws Ort::Exception on the route `KsNNSemanticOnnx` when a model or the operators cannot be loaded.
    /// The models loaded before stay.
    KsNN_ErrorCode LoadSemanticSearchModels(std::string modelDir, const std::string& extensionLibrary,
                                            KsNNDBSemanticSearchImpl route, bool debug);

    /// Finds the frames that are most like `text`.
    /// @param projectGuid Not used: frames of all projects are found.
    /// @param threshold   Not used.
    /// @param results     Receives frames after what it holds, best first. `text` is the frame's description,
    ///                    `startMS` and `endMS` its position, `score` three times the cosine, 0 to 0.999.
    /// @param maxResults  Number of frames; 0 or less leaves it to the index (10).
    /// @returns `KsNN_Success`, also when there is no semantic index; `KsNN_Error`, `KsNN_SetupFailed` and
    /// `KsNN_Exception` as above and when the index gives no answer. Frames read before a failure stay.
    KsNN_ErrorCode SemanticSearch(const std::string& text, const std::string& projectGuid, float threshold,
                                  std::vector<KsNNSearchResults>& results, int maxResults,
                                  KsNNDBSemanticSearchImpl route, bool debug);

    /// Finds the frames of one clip that are most like `text`; otherwise as `SemanticSearch`.
    /// @param mediaGuid Empty: of all clips.
    KsNN_ErrorCode SemanticSearchInClip(const std::string& text, const std::string& mediaGuid,
                                        std::vector<KsNNSearchResults>& results, int maxResults,
                                        KsNNDBSemanticSearchImpl route, bool debug);

    /// Makes what is said in a stored clip searchable by meaning: one frame for each segment, its text as the
    /// description, its start as the position. Creates the semantic index when it is missing. Frames that
    /// exist are left, those of a segment that has changed are replaced; frames of pictures are not touched.
    /// The models of `route` have to be loaded.
    /// @param written  Receives the number of frames written, also after a failure; the next call goes on
    ///                 behind them.
    /// @param progress Called before each segment with its index and the number of segments.
    /// @returns `KsNN_Success`; the code of `progress`; otherwise as `GetDBContents`, `CreateIndex` and
    /// `SemanticSearch`.
    KsNN_ErrorCode WriteSemanticFrames(const std::string& mediaGuid, const std::string& projectGuid,
                                       KsNNDBSemanticSearchImpl route, int& written,
                                       KsNNProgressCallback progress, bool debug);
    /// Deletes the frames that `WriteSemanticFrames` wrote for these clips; frames of pictures stay. For
    /// clips that leave the store: their frames would be found without them.
    KsNN_ErrorCode DeleteSemanticFrames(const std::vector<std::string>& mediaGuids, bool debug);
    /// @}

    /// @name Script alignment
    /// For each script line that is not empty in normal form, the transcript word where it begins.
    /// `alignment` is emptied first.
    /// @throws std::runtime_error when the search normaliser could not be created, or ICU has no word break
    /// rules.
    /// @{

    /// Aligns two lists of lines. `startMs` of every item is 0.
    /// @returns `KsNN_Success`.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const KsNNTextLines& transcript,
                         KsNNAlignment& alignment, bool debug);
    /// Aligns with a transcript in memory.
    /// @returns `KsNN_Success`; `KsNN_Error` when a script line is empty in normal form: `alignment` then has
    /// the items of the others, without times.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const KsNNDB_STTClipEntry& entry,
                         KsNNAlignment& alignment, bool debug);
    /// Aligns with a stored clip.
    /// @returns `KsNN_Success`; `KsNN_Error` as above, and when the clip cannot be read, for whatever reason.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const std::string& mediaGuid,
                         const std::string& projectGuid, KsNNAlignment& alignment, bool debug);
    /// Aligns with a part of a stored clip; times are relative to `startMS`.
    /// @returns as above; `KsNN_Error` also when `endMS` lies before `startMS`.
    KsNN_ErrorCode AlignRange(const KsNNTextLines& script, const std::string& mediaGuid,
                              const std::string& projectGuid, int startMS, int endMS,
                              KsNNAlignment& alignment, bool debug);
    /// @}

private:
    friend class kestrelml::detail::Operation;

    KsNN_ErrorCode Refresh(std::string index, bool& exists, bool debug, bool allIndices);
    KsNN_ErrorCode addToBulkCreateStream(KsNNDB_STTClipEntry& entry, std::stringstream& bulk, bool debug);

    static icu::UnicodeString trim(const icu::UnicodeString& text);
    void getNormalizedWords(const icu::UnicodeString& text, const std::string& language,
                            std::vector<icu::UnicodeString>& words);
    KsNN_ErrorCode findBestStartingWords(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                                         const std::string& language, float threshold,
                                         std::vector<int>& startWords, std::vector<float>& scores);

    KsNN_ErrorCode GetVectorEmbedding(const std::string& text, float* embedding,
                                      KsNNDBSemanticSearchImpl route, bool debug);
    KsNN_ErrorCode testEmbedding(const std::string& modelDir, const std::string& extensionLibrary);
    kestrelml::semantic::TextModels textModels();

    bool mOwnsInterpreterBridge;
    std::shared_ptr<Ort::Session> mTextModel; ///< Copies of a store share the models.
    std::shared_ptr<Ort::Session> mTokenizer;
    std::shared_ptr<Ort::Env> mInferenceEnvironment;

    static std::string mTranscriptIndex;
    static std::string mSpeakerIndex;
    static std::string mSemanticIndex;
    static std::string mLanguageCode;
    static std::string mTempProjectGuid;
    static std::string mTempProjectName;
    static std::string mTempMediaGuid;
    static std::string mEncryptedUser;
    static std::string mEncryptedPass;
    static std::string mKey;
    static icu::Transliterator* mTransliterator;
};
