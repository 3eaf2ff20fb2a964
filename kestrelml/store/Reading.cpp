#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/KsNNSegments.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"
#include "kestrelml/store/Slicing.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

using namespace kestrelml::detail;
using kestrelml::SegmentNumbers;

namespace {

Object::Ptr transcriptQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    return object({{"query", allOf({ofClip(mediaGuid), ofProject(projectGuid, version)})},
                   {"sort", ascending({field::kSegment})},
                   {"size", kMaximumHits}});
}

/// Fills a clip from the hits of the transcript query.
class ClipReader {
public:
    ClipReader(const Operation& operation, const std::string& projectGuid, int version,
               KsNNDB_STTClipEntry& entry)
        : mOperation(operation), mProjectGuid(projectGuid), mVersion(version), mEntry(entry) {}

    KsNN_ErrorCode read(const Array::Ptr& hits) {
        for (const Object::Ptr& hit : ObjectsOf(hits)) {
            if (const auto code = read(*sourceOf(*hit))) return code;
        }
        return KsNN_Success;
    }

    KsNN_ErrorCode read(const Object& document) {
        // Old stores hold clips without speakers: the first segment tells for the whole clip.
        if (mEntry.segments.empty()) mHasSpeakers = hasSpeakerLabel(document);
        return readSegment(document);
    }

private:
    KsNN_ErrorCode readSegment(const Object& document) {
        KsNNDBEntrySeg seg = readText(document);
        if (mHasSpeakers) seg.speakerID = speakerLabelOf(document);
        readSpeaker(document, seg);
        readProjects(document, seg);
        if (!readTimes(document, seg)) return mOperation.fail();
        const bool carriesClipFields = seg.segment == 0;
        mEntry.segments.push_back(std::move(seg));
        return carriesClipFields ? readClipFields(document) : KsNN_Success;
    }

    void readProjects(const Object& document, KsNNDBEntrySeg& seg) const {
        if (mVersion == kVersion1) {
            seg.projectGuid = projectGuidVersion1Of(document);
            return;
        }
        seg.projectGuidList = projectGuidsOf(document);
        const auto& list = seg.projectGuidList;
        if (std::find(list.begin(), list.end(), mProjectGuid) != list.end()) seg.projectGuid = mProjectGuid;
    }

    KsNN_ErrorCode readClipFields(const Object& document) {
        if (mVersion == kVersion1) {
            mEntry.projectName = projectNameVersion1Of(document);
        } else {
            for (const KsNNProject& project : projectsOf(document)) {
                mEntry.projects.push_back(project);
                if (project.projectGuid == mProjectGuid) mEntry.projectName = project.projectName;
            }
            if (!isVersion2(document)) {
                return mOperation.failSaying("schemaVersion is incorrect or missing, ");
            }
        }
        readClip(document, mEntry);
        mEntry.progressComplete = isComplete(document);
        return KsNN_Success;
    }

    const Operation& mOperation;
    const std::string& mProjectGuid;
    int mVersion;
    KsNNDB_STTClipEntry& mEntry;
    bool mHasSpeakers = false;
};

/// Services refuse queries of more than about a thousand clauses; a clip takes three.
constexpr std::size_t kClipsOfQuery = 200;
constexpr std::size_t kSegmentsOfQuery = kMaximumHits;

/// Reads the wanted segments, some clips at a time.
class SegmentsReader {
public:
    using Clips = std::map<std::string, KsNNDB_STTClipEntry>;

    SegmentsReader(Operation& operation, std::string index, std::string projectGuid, Clips& clips)
        : mOperation(operation), mIndex(std::move(index)), mProject(std::move(projectGuid)), mClips(clips) {}

    KsNN_ErrorCode read(const SegmentNumbers& wanted) {
        Array::Ptr asked = new Array;
        std::size_t segments = 0;
        for (const auto& [clip, numbers] : wanted) {
            if (numbers.size() > kSegmentsOfQuery)
                return mOperation.failSaying("More than " + std::to_string(kMaximumHits) +
                                             " segments of the clip " + clip + " are asked for.");
            if (asked->size() == kClipsOfQuery || segments + numbers.size() > kSegmentsOfQuery) {
                if (const auto code = ask(asked)) return code;
                asked = new Array;
                segments = 0;
            }
            asked->add(allOf({ofClip(clip), terms(field::kSegment, numbers)}));
            segments += numbers.size();
        }
        return asked->size() == 0 ? KsNN_Success : ask(asked);
    }

private:
    KsNN_ErrorCode ask(const Array::Ptr& clips) {
        const Object::Ptr query = object({{"query", allOf({ofProject(mProject, kVersion2), anyOf(clips)})},
                                          {"sort", ascending({field::kSegment})},
                                          {"size", kMaximumHits}});
        if (const auto code = mOperation.ask("GET", searchPath(mIndex), query)) return code;
        return mOperation.read([&](const Object& answer) {
            std::map<std::string, ClipReader> readers;
            std::set<std::string> damaged;
            for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer))) {
                const Object::Ptr document = sourceOf(*hit);
                const std::string clip = mediaGuidOf(*document);
                ClipReader& reader =
                    readers.try_emplace(clip, mOperation, mProject, kVersion2, mClips[clip]).first->second;
                if (mOperation.guard([&] { return reader.read(*document); })) damaged.insert(clip);
            }
            for (const std::string& clip : damaged)
                mClips.erase(clip);
            return KsNN_Success;
        });
    }

    Operation& mOperation;
    std::string mIndex;
    std::string mProject;
    Clips& mClips;
};

} // namespace

KsNN_ErrorCode kestrelml::readSegments(KsNNDatabase& store, const std::string& projectGuid,
                                       const SegmentNumbers& wanted,
                                       std::map<std::string, KsNNDB_STTClipEntry>& clips, bool debug) {
    clips.clear();
    Operation operation(store, "readSegments err: ", debug);
    if (wanted.empty()) return KsNN_Success;
    const std::string index = KsNNDatabase::getTranscriptIndex();
    if (const auto state = operation.refresh(index); !state.isReady()) return state.code();
    const KsNN_ErrorCode code = SegmentsReader(operation, index, projectGuid, clips).read(wanted);
    if (code != KsNN_Success) clips.clear();
    return code;
}

KsNN_ErrorCode KsNNDatabase::GetDBContents(const std::string& mediaGuid, const std::string& projectGuid,
                                           KsNNDB_STTClipEntry& entry, bool debug, int version) {
    entry.segments.clear();
    Operation operation(*this, "KsNNDatabase::GetDBContents err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    if (!isKnownVersion(version)) {
        return operation.failWith("KsNNDatabase::getDBContents err: version is invalid.");
    }
    const Object::Ptr query = transcriptQuery(mediaGuid, projectGuid, version);
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
    return operation.read([&](const Object& answer) {
        return ClipReader(operation, projectGuid, version, entry).read(hitsOf(answer));
    });
}

KsNN_ErrorCode KsNNDatabase::GetWholeClip(const std::string& mediaGuid, const std::string& projectGuid,
                                          KsNNDB_STTClipEntry& entry, bool debug) {
    entry.segments.clear();
    Operation operation(*this, "KsNNDatabase::GetWholeClip err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr query = transcriptQuery(mediaGuid, projectGuid, kVersion2);
    ClipReader reader(operation, projectGuid, kVersion2, entry);
    // Services hold few open scrolls: only what one request cannot give takes one.
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
    bool isWhole = false;
    const KsNN_ErrorCode read = operation.read([&](const Object& answer) {
        isWhole = hitsOf(answer)->size() < static_cast<std::size_t>(kMaximumHits);
        return isWhole ? reader.read(hitsOf(answer)) : KsNN_Success;
    });
    if (read != KsNN_Success || isWhole) return read;
    Scroll scroll(operation, mTranscriptIndex, query, kMaximumHits);
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        if (const auto code = operation.guard([&] { return reader.read(scroll.hits()); })) return code;
    }
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::GetDBContentsRange(const std::string& mediaGuid, const std::string& projectGuid,
                                                int startMS, int endMS, KsNNDB_STTClipEntry& entry,
                                                bool debug) {
    Operation operation(*this, "KsNNDatabase::GetDBContentsRange err: ", debug);
    if (endMS < startMS) return operation.failWith("KsNNDatabase::GetDBContentsRange: endMS < startMS");
    if (const auto code = GetDBContents(mediaGuid, projectGuid, entry, debug, kVersion2)) return code;
    // The words of a segment are found anew, which can fail.
    operation.quoteRuntimeErrors();
    return operation.guard([&] {
        slice(startMS, endMS, entry);
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::sliceEntries(int startMS, int endMS, KsNNDB_STTClipEntry& entry) {
    return guarded({"KsNNDatabase::sliceEntries err: "}, nullptr, false, [&] {
        slice(startMS, endMS, entry);
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::appendEntry(const KsNNDB_STTClipEntry& source, int offsetMS,
                                         KsNNDB_STTClipEntry& target) {
    const auto shift = [offsetMS](std::vector<std::int32_t>& times) {
        for (std::int32_t& time : times)
            time = static_cast<std::int32_t>(std::int64_t{time} + offsetMS);
    };
    // Source and target may be the same entry.
    const std::size_t count = source.segments.size();
    target.segments.reserve(target.segments.size() + count);
    for (std::size_t i = 0; i < count; ++i) {
        KsNNDBEntrySeg seg = source.segments[i];
        shift(seg.wordStartsMS);
        shift(seg.wordEndsMS);
        target.segments.push_back(std::move(seg));
    }
    return KsNN_Success;
}
