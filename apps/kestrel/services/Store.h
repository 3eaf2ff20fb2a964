#pragma once

#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <string>

namespace kestrel {

inline constexpr int kSchemaVersion = 2;

/// Whether the index service at `uri` takes the password that is kept.
bool acceptsCredentials(const Home& home, const std::string& uri);
/// The running store, opened and probed.
/// @throws Failure that says what to do when it is down, refuses the password, or has to be migrated.
KsNNDatabase openStore(const Home& home);
/// The same for a store that may still be one of an earlier version.
KsNNDatabase openStoreOfAnyVersion(const Home& home);

/// Where stores of schema version 1 keep their transcripts.
inline constexpr const char* kOldTranscriptIndex = "transcript_index_rel";

/// Works on another transcript index for as long as it lives. The index is one for the whole process.
class TranscriptIndexSwitch {
public:
    explicit TranscriptIndexSwitch(const std::string& index);
    TranscriptIndexSwitch(const TranscriptIndexSwitch&) = delete;
    TranscriptIndexSwitch& operator=(const TranscriptIndexSwitch&) = delete;
    ~TranscriptIndexSwitch();

private:
    std::string mBefore;
};

/// Number of documents of a transcript index; 0 when there is none of that name.
int documentCount(KsNNDatabase& store, const std::string& index);

/// The last failure of a store or an engine in one line, without source positions; empty when there is none.
std::string detailOf(const KsNNBase& object);
/// @throws Failure "<what>: <detail>" unless `code` is success.
void check(KsNN_ErrorCode code, const KsNNBase& object, const std::string& what);

} // namespace kestrel
