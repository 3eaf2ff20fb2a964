#pragma once

/// @file
/// The transcript store: writing, locking, reading and searching transcripts in an Elasticsearch-compatible
/// index.

#include "kestrelml/core/Export.h"
#include "kestrelml/core/KsNNBase.h"

#include <unicode/unistr.h>

#include <sstream>
#include <string>
#include <vector>

U_NAMESPACE_BEGIN
class Transliterator;
U_NAMESPACE_END

class KsNNAlignment;
class KsNNTextLines;

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

    /// Probes the service; fails unless it answers as an index service does.
    KsNN_ErrorCode testDefault(bool debug);
    /// Creates `index` with the store's mapping unless it exists.
    KsNN_ErrorCode CreateIndex(const std::string& index, bool debug);
    KsNN_ErrorCode CheckIndex(bool& exists, const std::string& index, bool debug);
    /// Deletes `index`; a missing one is a success.
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
    /// @{

    /// Stores credentials for every later request of every store.
    /// @param encryptedUser User name as `IEncryptStream` writes it under `key`.
    /// @param encryptedPass Password, likewise.
    /// @param key           Pass phrase that decrypts both.
    /// @param debugIndex    Suffix the transcript index with "_dbg" instead of "_rel".
    KsNN_ErrorCode SetCredentials(const std::string& encryptedUser, const std::string& encryptedPass,
                                  const std::string& key, bool debug, bool debugIndex);
    static std::string getEncryptedUser();
    static std::string getEncryptedPass();
    static std::string getKey();
    /// Encrypts all of `plain` under the stored key and appends Base64 text to `encrypted`.
    KsNN_ErrorCode IEncryptStream(std::stringstream& plain, std::stringstream& encrypted, bool debug);
    /// The reverse. Empty input is a success that writes nothing and leaves a warning in the error text.
    KsNN_ErrorCode IDecryptStream(std::stringstream& encrypted, std::stringstream& plain, bool debug);
    /// @}

    /// @name Locks
    /// A lock is a document; taking it is atomic across processes. It has no owner and no expiry.
    /// @{

    /// Takes the clip's lock. 4 when somebody holds it.
    KsNN_ErrorCode LockEntry(const std::string& mediaGuid, bool debug);
    KsNN_ErrorCode GetLockState(const std::string& mediaGuid, bool& locked, bool debug);
    /// Releases the clip's lock. 4 when nobody holds it.
    KsNN_ErrorCode UnlockEntry(const std::string& mediaGuid, bool debug);
    /// Releases one page (ten) of the locks that exist.
    KsNN_ErrorCode UnlockAllEntries(bool debug);
    /// Appends one page (ten) of the locked clips to `mediaGuids`.
    KsNN_ErrorCode FindAllLockedMediaGuids(std::vector<std::string>& mediaGuids, bool debug);
    /// @}

    /// @name Writing
    /// @{

    /// Writes one segment. Segment 0 needs the clip's lock; a stored segment is left alone; a complete clip
    /// refuses.
    KsNN_ErrorCode WriteToDB(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug);
    /// Writes one segment in schema version 1, for stores that have not been migrated.
    KsNN_ErrorCode WriteToDBVer1(const KsNNDBEntryBase& base, const KsNNDBEntrySeg& seg, bool debug);
    /// @}

    /// @name Progress and counts
    /// `version` is the schema version, 1 or 2. In version 2 the project "ANY" means every project.
    /// @{
    KsNN_ErrorCode GetSegmentCount(const std::string& mediaGuid, const std::string& projectGuid, int& count,
                                   bool debug, int version);
    /// Counts every document of the transcript index, locks included.
    KsNN_ErrorCode GetTotalSegmentCount(int& count, bool debug);
    KsNN_ErrorCode GetProgressComplete(const std::string& mediaGuid, const std::string& projectGuid,
                                       bool& complete, bool debug, int version);
    /// Marks the clip complete; a clip without segments is left alone. An empty project means "ANY".
    KsNN_ErrorCode SetProgressComplete(const std::string& mediaGuid, bool debug, int version,
                                       std::string projectGuid);
    /// @}

    /// @name Reading
    /// @{

    /// Reads a clip, at most 10,000 segments. Clears `entry.segments`, appends to `entry.projects`.
    KsNN_ErrorCode GetDBContents(const std::string& mediaGuid, const std::string& projectGuid,
                                 KsNNDB_STTClipEntry& entry, bool debug, int version);
    /// Reads the words between two times, which become relative to `startMS`.
    KsNN_ErrorCode GetDBContentsRange(const std::string& mediaGuid, const std::string& projectGuid,
                                      int startMS, int endMS, KsNNDB_STTClipEntry& entry, bool debug);
    /// Keeps the words that lie mostly inside [`startMS`, `endMS`]; one empty segment when there is none.
    static KsNN_ErrorCode sliceEntries(int startMS, int endMS, KsNNDB_STTClipEntry& entry);
    /// Appends the segments of `source`, their words shifted by `offsetMS`.
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
    KsNN_ErrorCode Search(const std::string& text, const std::string& projectGuid, float threshold,
                          std::vector<KsNNSearchResults>& results, int maxResults, bool debug);

    /// Replaces `text` by its normal form for search: no case, accents, punctuation or repeated spaces.
    /// @throws std::runtime_error when the normaliser could not be created.
    static void normalizeForSearch(icu::UnicodeString& text);
    /// Appends the words of `text`, as the word break rules of `language` (an ICU locale) see them.
    static void get_words_in_string(const icu::UnicodeString& text, const std::string& language,
                                    std::vector<icu::UnicodeString>& words);
    /// Appends start and end (exclusive) of each of these words, in UTF-16 units.
    static void get_word_indices_in_string(const icu::UnicodeString& text, const std::string& language,
                                           std::vector<int>& starts, std::vector<int>& ends);
    /// Self-test. Neither argument is used by the sections that exist.
    KsNN_ErrorCode testInternals(std::string modelDir, std::string extensionLibrary);
    /// @}

    /// @name Script alignment
    /// For each script line that is not empty in normal form, the transcript word where it begins.
    /// @{

    /// Aligns two lists of lines. `startMs` of every item is 0.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const KsNNTextLines& transcript,
                         KsNNAlignment& alignment, bool debug);
    /// Aligns with a transcript in memory. Fails when a script line is empty in normal form.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const KsNNDB_STTClipEntry& entry,
                         KsNNAlignment& alignment, bool debug);
    /// Aligns with a stored clip.
    KsNN_ErrorCode Align(const KsNNTextLines& script, const std::string& mediaGuid,
                         const std::string& projectGuid, KsNNAlignment& alignment, bool debug);
    /// Aligns with a part of a stored clip; times are relative to `startMS`.
    KsNN_ErrorCode AlignRange(const KsNNTextLines& script, const std::string& mediaGuid,
                              const std::string& projectGuid, int startMS, int endMS,
                              KsNNAlignment& alignment, bool debug);
    /// @}

private:
    KsNN_ErrorCode Refresh(std::string index, bool& exists, bool debug, bool allIndices);
    KsNN_ErrorCode addToBulkCreateStream(KsNNDB_STTClipEntry& entry, std::stringstream& bulk, bool debug);

    static icu::UnicodeString trim(const icu::UnicodeString& text);
    void getNormalizedWords(const icu::UnicodeString& text, const std::string& language,
                            std::vector<icu::UnicodeString>& words);
    KsNN_ErrorCode findBestStartingWords(const icu::UnicodeString& phrase, const icu::UnicodeString& text,
                                         const std::string& language, float threshold,
                                         std::vector<int>& startWords, std::vector<float>& scores);

    bool mOwnsInterpreterBridge;

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
