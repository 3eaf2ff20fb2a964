#include "apps/kestrel/clips/Migration.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>

namespace kestrel {

namespace {

constexpr int kBatchSize = 1000;

std::vector<std::string> oldClips(KsNNDatabase& store) {
    const TranscriptIndexSwitch there(kOldTranscriptIndex);
    return completeClips(store, "ALL");
}

/// With a current index in place the store takes the migration for done and empties the old one: that is
/// right only when the clips have really been copied.
void requireCopied(KsNNDatabase& store, const std::string& current) {
    for (const std::string& clip : oldClips(store)) {
        int segments = 0;
        check(store.GetSegmentCount(clip, "ANY", segments, false, kSchemaVersion), store,
              "the store cannot be asked for a clip");
        if (segments == 0)
            throw Failure(fmt::format("the index {} has clips already, but not the clip {} of the old index "
                                      "{}; migrating would lose it, so nothing was changed",
                                      current, clip, kOldTranscriptIndex));
    }
}

} // namespace

int oldDocuments(KsNNDatabase& store) {
    return documentCount(store, kOldTranscriptIndex);
}

void migrate(KsNNDatabase& store, const Callbacks& callbacks) {
    const std::string current = KsNNDatabase::getTranscriptIndex();
    const TranscriptIndexSwitch stay(current); // whatever index the migration ends on
    if (documentCount(store, current) > 0)
        requireCopied(store, current);
    else // empty, if it is there at all: in the way
        check(store.DeleteIndex(current, false), store, fmt::format("{} cannot be replaced", current));
    const KsNN_ErrorCode code = store.MigrateDatabaseVersion1to2(
        false, false,
        [&](int done, int total, const char*) {
            callbacks.report("migrating", static_cast<double>(done) / std::max(total, 1));
            return callbacks.isCancelled() ? KsNN_Error : KsNN_Success;
        },
        kBatchSize);
    if (code != KsNN_Success) callbacks.throwIfCancelled();
    check(code, store, "the migration failed and left the old transcripts as they were");
}

} // namespace kestrel
