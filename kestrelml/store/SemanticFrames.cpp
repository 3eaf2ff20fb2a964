#include "kestrelml/semantic/TextEmbedder.h"
#include "kestrelml/semantic/TextModels.h"
#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <algorithm>
#include <map>
#include <utility>

using namespace kestrelml::detail;
using kestrelml::semantic::createTextEmbedder;
using kestrelml::semantic::Embedding;

namespace {

constexpr int kPageSize = 200;
constexpr std::size_t kFramesOfARequest = 100;

/// Where something is said, and what.
using Spoken = std::pair<int, std::string>;

Spoken spokenIn(const KsNNDBEntrySeg& seg) {
    return {seg.wordStartsMS.empty() ? 0 : seg.wordStartsMS.front(), seg.transcript};
}

/// The in-process route leaves the vector empty when its models are not loaded or fail.
bool isUsable(const Embedding& vector) {
    return std::any_of(vector.begin(), vector.end(), [](float number) { return number != 0.0F; });
}

/// The clip's frames that this operation wrote, with their identifiers. Those of pictures have no segment.
KsNN_ErrorCode readSpokenFrames(Operation& operation, const std::string& index, const std::string& mediaGuid,
                                std::multimap<Spoken, std::string>& frames) {
    Scroll scroll(operation, index, searchFor(allOf({ofClip(mediaGuid), exists(field::kSegment)})),
                  kPageSize);
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        const KsNN_ErrorCode read = operation.guard([&] {
            for (const Object::Ptr& hit : ObjectsOf(scroll.hits())) {
                const Frame frame = frameOf(*hit);
                frames.emplace(Spoken{frame.positionMS, frame.description}, idOf(*hit));
            }
            return KsNN_Success;
        });
        if (read != KsNN_Success) return read;
    }
    return KsNN_Success;
}

/// Collects frames and writes them in requests of moderate size.
class FrameWriter {
public:
    FrameWriter(Operation& operation, std::string index) : mOperation(operation), mIndex(std::move(index)) {}

    KsNN_ErrorCode add(const Frame& frame, int segment, const Embedding& vector) {
        appendBulkCreate(frame, segment, vector, mBulk);
        return ++mWaiting < kFramesOfARequest ? KsNN_Success : flush();
    }

    KsNN_ErrorCode flush() {
        if (mWaiting == 0) return KsNN_Success;
        const KsNN_ErrorCode code = mOperation.createAll(mIndex, mBulk);
        if (code == KsNN_Success) mWritten += mWaiting;
        mBulk = {};
        mWaiting = 0;
        return code;
    }

    int written() const { return static_cast<int>(mWritten); }

private:
    Operation& mOperation;
    std::string mIndex;
    std::stringstream mBulk;
    std::size_t mWaiting = 0;
    std::size_t mWritten = 0;
};

} // namespace

KsNN_ErrorCode KsNNDatabase::DeleteSemanticFrames(const std::vector<std::string>& mediaGuids, bool debug) {
    Operation operation(*this, "KsNNDatabase::DeleteSemanticFrames err: ", debug);
    if (mediaGuids.empty()) return KsNN_Success;
    if (const auto index = operation.refresh(mSemanticIndex); !index.isReady()) return index.code();
    return operation.ask("POST", deleteByQueryPath(mSemanticIndex),
                         searchFor(allOf({ofAnyClip(mediaGuids), exists(field::kSegment)})));
}

KsNN_ErrorCode KsNNDatabase::WriteSemanticFrames(const std::string& mediaGuid, const std::string& projectGuid,
                                                 KsNNDBSemanticSearchImpl route, int& written,
                                                 KsNNProgressCallback progress, bool debug) {
    written = 0;
    Operation operation(*this, "KsNNDatabase::WriteSemanticFrames err: ", debug);
    const auto embedder = createTextEmbedder(route, *this, textModels(), debug);
    if (!embedder) return operation.failSaying("There is no route " + std::to_string(route) + ".");
    KsNNDB_STTClipEntry entry;
    if (const auto code = GetWholeClip(mediaGuid, projectGuid, entry, debug)) return code;
    if (const auto code = CreateIndex(mSemanticIndex, debug)) return code;
    if (const auto code = operation.refresh(mSemanticIndex).code()) return code;

    std::multimap<Spoken, std::string> stale;
    if (const auto code = readSpokenFrames(operation, mSemanticIndex, mediaGuid, stale)) return code;
    FrameWriter writer(operation, mSemanticIndex);
    const int count = static_cast<int>(entry.segments.size());
    for (const KsNNDBEntrySeg& seg : entry.segments) {
        if (const auto code = operation.tell(progress, seg.segment, count)) return code;
        const Spoken spoken = spokenIn(seg);
        if (const auto known = stale.find(spoken); known != stale.end()) {
            stale.erase(known);
            continue;
        }
        if (spoken.second.empty()) continue;
        Embedding vector{};
        if (const auto code = embedder->embed(seg.transcript, vector)) return code;
        if (!isUsable(vector)) return operation.failSaying("the route gave no embedding");
        const Frame frame{mediaGuid, entry.clipName, entry.projectName, spoken.first, seg.transcript};
        if (const auto code = writer.add(frame, seg.segment, vector)) return code;
        written = writer.written();
    }
    const KsNN_ErrorCode flushed = writer.flush();
    written = writer.written();
    if (flushed != KsNN_Success) return flushed;
    // Last, so that a clip whose transcript changed is never without frames.
    for (const auto& [spoken, id] : stale) {
        if (const auto code = operation.send("DELETE", documentPath(mSemanticIndex, id))) return code;
        if (!operation.hasStatus({200, 404})) return operation.fail(); // another host may have been first
    }
    return KsNN_Success;
}
