#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <chrono>
#include <thread>

using namespace kestrelml::detail;

namespace {

constexpr const char* kEveryIndex = "*";
constexpr int kProbes = 4;
constexpr std::chrono::seconds kPauseAfterProbe{1};

/// The segments 0 of the clips that are to leave the project.
Object::Ptr clipsToRemove(const std::string& mediaGuid, const std::string& projectGuid) {
    if (mediaGuid == kAll) return searchFor(allOf({ofProject(projectGuid), ofSegment(0)}));
    return searchFor(allOf({ofClip(mediaGuid), ofProject(projectGuid), ofSegment(0)}));
}

KsNN_ErrorCode deleteWhere(Operation& operation, const std::string& index, const Object::Ptr& query,
                           const char* name) {
    if (const auto code = operation.ask("POST", deleteByQueryPath(index), searchFor(query))) return code;
    operation.debugLine(name, ": Total entries deleted = ", deletedOf(*operation.answer()));
    return KsNN_Success;
}

} // namespace

KsNN_ErrorCode KsNNDatabase::DeleteEntry(const std::string& mediaGuid, const std::string& projectGuid,
                                         bool debug, int pageSize, KsNNProgressCallback progress) {
    Operation operation(*this, "KsNNDatabase::DeleteEntry err: ", debug);
    if (const auto index = operation.refreshAll(mTranscriptIndex); !index.isReady()) return index.code();

    const auto remove = [&](const Object& hit) -> KsNN_ErrorCode {
        const Object::Ptr document = sourceOf(hit);
        const std::string clip = mediaGuidOf(*document);
        const bool isShared = projectGuidsOf(*document).size() > 1;
        if (isShared) return RemoveProjectFromEntry(clip, projectGuid, debug);
        return deleteWhere(operation, mediaGuid == kAll ? kEveryIndex : mTranscriptIndex,
                           allOf({ofClip(clip), ofProject(projectGuid)}), "KsNNDatabase::DeleteEntry");
    };

    Scroll scroll(operation, mTranscriptIndex, clipsToRemove(mediaGuid, projectGuid), pageSize);
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        for (int i = 0; i < static_cast<int>(scroll.hits()->size()); ++i) {
            if (const auto code = operation.tell(progress, i, i)) return code;
            if (const auto code = operation.refreshAll(mTranscriptIndex).code()) return code;
            const KsNN_ErrorCode removed = operation.guard(
                [&] { return remove(*objectAt(*scroll.hits(), static_cast<std::size_t>(i))); });
            if (removed != KsNN_Success) return removed;
        }
        if (!scroll.hasNext()) break;
        if (const auto code = operation.refreshAll(mTranscriptIndex).code()) return code;
    }
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::HardDeleteEntries(std::vector<std::string> mediaGuids, bool debug) {
    Operation operation(*this, "KsNNDatabase::HardDeleteEntries err: ", debug);
    if (mediaGuids.empty()) {
        operation.debugLine("KsNNDatabase::HardDeleteEntries: warning, early return. Empty mediaGuid list.");
        return KsNN_Success;
    }
    return deleteWhere(operation, mTranscriptIndex, anyOf(ofEachClip(mediaGuids)),
                       "KsNNDatabase::HardDeleteEntries");
}

KsNN_ErrorCode KsNNDatabase::DeleteAllInProgressEntries(bool debug) {
    Operation operation(*this, "KsNNDatabase::DeleteAllInProgressEntries err: ", debug);
    // The service may still be starting.
    KsNN_ErrorCode running = KsNN_Error;
    for (int probe = 0; probe < kProbes && running != KsNN_Success; ++probe) {
        running = testDefault(debug);
        if (running != KsNN_Success) std::this_thread::sleep_for(kPauseAfterProbe);
    }
    if (running != KsNN_Success) {
        operation.failWith("Indexing database is not running. WordHunt and LineMatch are unavailable.");
        return running;
    }

    std::vector<KsNNSearchResults> unfinished;
    if (const auto code = GetAllInprogressEntries(unfinished, false)) return code;
    for (const KsNNSearchResults& entry : unfinished) {
        const KsNN_ErrorCode code =
            DeleteEntry(entry.mediaGuid, entry.projectGuid, false, kMaximumHits, nullptr);
        if (code != KsNN_Success) return code;
    }
    return KsNN_Success;
}
