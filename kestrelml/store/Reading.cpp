#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"
#include "kestrelml/store/Slicing.h"

#include <algorithm>

using namespace kestrelml::detail;

namespace {

/// The most that one search gives: no clip has more segments.
constexpr int kMaximumSegments = 10000;

Object::Ptr transcriptQuery(const std::string& mediaGuid, const std::string& projectGuid, int version) {
    Object::Ptr order = object("order", "asc");
    order->set("mode", "min");
    Object::Ptr query =
        matchingAll(array({term("mediaGuid.keyword", mediaGuid), term(projectField(version), projectGuid)}));
    query->set("sort", array({object("segment", order)}));
    query->set("size", kMaximumSegments);
    return query;
}

/// Fills a clip from the hits of the transcript query.
class ClipReader {
public:
    ClipReader(const Request& request, const std::string& projectGuid, int version,
               KsNNDB_STTClipEntry& entry)
        : mRequest(request), mProjectGuid(projectGuid), mVersion(version), mEntry(entry) {}

    KsNN_ErrorCode read(const Array& hits) {
        for (std::size_t i = 0; i < hits.size(); ++i) {
            const Object::Ptr document = sourceOf(*objectAt(hits, i));
            // Old stores hold clips without speakers: the first segment tells for the whole clip.
            if (i == 0) mHasSpeakers = document->has("speakerID");
            if (const auto code = readSegment(*document)) return code;
        }
        return KsNN_Success;
    }

private:
    KsNN_ErrorCode readSegment(const Object& document) {
        KsNNDBEntrySeg seg;
        seg.segment = integerOf(document, "segment");
        seg.mediaGuid = textOf(document, "mediaGuid");
        seg.transcript = textOf(document, "transcript");
        seg.language = textOf(document, "language");
        if (mHasSpeakers) seg.speakerID = textOf(document, "speakerID");
        if (document.has("speakerGuid")) seg.speakerGuid = textOf(document, "speakerGuid");
        readProjects(document, seg);
        if (const auto code = readTimes(document, seg)) return code;
        const bool carriesClipFields = seg.segment == 0;
        mEntry.segments.push_back(std::move(seg));
        return carriesClipFields ? readClipFields(document) : KsNN_Success;
    }

    void readProjects(const Object& document, KsNNDBEntrySeg& seg) const {
        if (mVersion == 1) {
            seg.projectGuid = textOf(document, "projectGuid");
            return;
        }
        seg.projectGuidList = textsOf(document, "projectGuidList");
        const auto& list = seg.projectGuidList;
        if (std::find(list.begin(), list.end(), mProjectGuid) != list.end()) seg.projectGuid = mProjectGuid;
    }

    KsNN_ErrorCode readTimes(const Object& document, KsNNDBEntrySeg& seg) const {
        const Array::Ptr starts = arrayOf(document, "wordStartsMS");
        const Array::Ptr ends = arrayOf(document, "wordEndsMS");
        if (starts->size() != ends->size()) return mRequest.fail();
        for (std::size_t i = 0; i < starts->size(); ++i) {
            seg.wordStartsMS.push_back(integerAt(*starts, i));
            seg.wordEndsMS.push_back(integerAt(*ends, i));
        }
        return KsNN_Success;
    }

    KsNN_ErrorCode readClipFields(const Object& document) {
        if (mVersion == 1) {
            mEntry.projectName = textOf(document, "project");
        } else {
            readProjectList(document);
            const Var schema = document.get("schemaVersion");
            if (schema.isEmpty() || schema.convert<Poco::Int32>() != 2) {
                return mRequest.failWith(
                    "KsNNDatabase::GetDBContents err: schemaVersion is incorrect or missing, ");
            }
        }
        mEntry.model = textOf(document, "model");
        mEntry.clipName = textOf(document, "clipName");
        mEntry.audioTracks = textOf(document, "audioTracks");
        mEntry.progressComplete = memberOf(document, "progressComplete").convert<bool>();
        mEntry.clientApp = textOf(document, "clientApp");
        return KsNN_Success;
    }

    void readProjectList(const Object& document) {
        const Array::Ptr list = arrayOf(document, "projectList");
        for (std::size_t i = 0; i < list->size(); ++i) {
            const Object::Ptr pair = objectAt(*list, i);
            mEntry.projects.push_back({textOf(*pair, "projectName"), textOf(*pair, "projectGuid")});
            const KsNNProject& project = mEntry.projects.back();
            if (project.projectGuid == mProjectGuid) mEntry.projectName = project.projectName;
        }
    }

    const Request& mRequest;
    const std::string& mProjectGuid;
    int mVersion;
    KsNNDB_STTClipEntry& mEntry;
    bool mHasSpeakers = false;
};

} // namespace

KsNN_ErrorCode KsNNDatabase::GetDBContents(const std::string& mediaGuid, const std::string& projectGuid,
                                           KsNNDB_STTClipEntry& entry, bool debug, int version) {
    ResetErrorStr();
    entry.segments.clear();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;
    Request request(*this, "KsNNDatabase::GetDBContents err: ", debug);
    if (!isKnownVersion(version)) {
        return request.failWith("KsNNDatabase::getDBContents err: version is invalid.");
    }
    const Object::Ptr query = transcriptQuery(mediaGuid, projectGuid, version);
    if (const auto code = request.sendExpectingOk("GET", mTranscriptIndex + "/_search", query)) return code;
    return request.read([&](const Object& answer) {
        return ClipReader(request, projectGuid, version, entry).read(*hitsOf(answer));
    });
}

KsNN_ErrorCode KsNNDatabase::GetDBContentsRange(const std::string& mediaGuid, const std::string& projectGuid,
                                                int startMS, int endMS, KsNNDB_STTClipEntry& entry,
                                                bool debug) {
    if (endMS < startMS) {
        reportError(nullptr, "KsNNDatabase::GetDBContentsRange: endMS < startMS", __LINE__, this, debug);
        return KsNN_Error;
    }
    if (const auto code = GetDBContents(mediaGuid, projectGuid, entry, debug, 2)) return code;
    return sliceEntries(startMS, endMS, entry);
}

KsNN_ErrorCode KsNNDatabase::sliceEntries(int startMS, int endMS, KsNNDB_STTClipEntry& entry) {
    try {
        slice(startMS, endMS, entry);
        return KsNN_Success;
    } catch (const std::exception&) {
        return KsNN_Error;
    }
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
