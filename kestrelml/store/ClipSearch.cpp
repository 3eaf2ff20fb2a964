#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <algorithm>
#include <map>

using namespace kestrelml::detail;

namespace {

constexpr int kClipsOfPage = 1000;
constexpr int kValuesOfClip = 100;
/// Services refuse queries of more than about a thousand clauses.
constexpr std::size_t kClausesOfQuery = 400;

/// Names of aggregations.
constexpr const char* kClips = "clips";
constexpr const char* kLanguages = "languages";
constexpr const char* kLabels = "labels";
constexpr const char* kSpeakers = "speakers";

Object::Ptr clipsLike(const KsNNClipQuery& query) {
    Array::Ptr conditions = new Array;
    if (!query.mediaGuid.empty()) conditions->add(ofClip(query.mediaGuid));
    if (!query.projectGuid.empty()) conditions->add(ofProject(query.projectGuid));
    if (!query.clipName.empty()) conditions->add(ofClipName(query.clipName));
    if (query.unfinishedOnly) conditions->add(withProgressComplete(false));
    conditions->add(ofSegment(0));
    return searchFor(allOf(conditions));
}

/// Counts the segments of each clip by language, by label, and by label and speaker.
Object::Ptr contentsOf(const std::vector<std::string>& mediaGuids) {
    Object::Ptr labels = bucketsBy(exact(field::kSpeakerID), kValuesOfClip);
    labels->set("aggs", object(kSpeakers, bucketsBy(exact(field::kSpeakerGuid), kValuesOfClip)));
    Object::Ptr clips = bucketsBy(exact(field::kMediaGuid), static_cast<int>(mediaGuids.size()));
    clips->set("aggs",
               object({{kLanguages, bucketsBy(exact(field::kLanguage), kValuesOfClip)}, {kLabels, labels}}));
    return object({{"query", ofAnyClip(mediaGuids)}, {"size", 0}, {"aggs", object(kClips, clips)}});
}

std::vector<KsNNClipSpeaker> speakersOf(const Object& clip) {
    std::vector<KsNNClipSpeaker> speakers;
    for (const Object::Ptr& label : ObjectsOf(bucketsOf(*objectOf(clip, kLabels)))) {
        int unassigned = countOf(*label);
        for (const Object::Ptr& speaker : ObjectsOf(bucketsOf(*objectOf(*label, kSpeakers)))) {
            speakers.push_back({keyOf(*label), keyOf(*speaker)});
            unassigned -= countOf(*speaker);
        }
        if (unassigned > 0) speakers.push_back({keyOf(*label), ""});
    }
    return speakers;
}

/// Reads what is said of the segments of some clips.
class ContentsReader {
public:
    ContentsReader(Operation& operation, std::string index)
        : mOperation(operation), mIndex(std::move(index)) {}

    KsNN_ErrorCode read(std::vector<KsNNClipSummary>::iterator begin,
                        std::vector<KsNNClipSummary>::iterator end) {
        std::vector<std::string> mediaGuids;
        mClips.clear();
        for (auto clip = begin; clip != end; ++clip) {
            mediaGuids.push_back(clip->mediaGuid);
            mClips[clip->mediaGuid] = &*clip;
        }
        if (mediaGuids.empty()) return KsNN_Success;
        if (const auto code = mOperation.ask("GET", searchPath(mIndex), contentsOf(mediaGuids))) return code;
        const KsNN_ErrorCode counted = mOperation.read([&](const Object& answer) {
            for (const Object::Ptr& bucket : ObjectsOf(bucketsOf(*aggregationOf(answer, kClips))))
                count(*bucket);
            return KsNN_Success;
        });
        return counted == KsNN_Success ? readEnds() : counted;
    }

private:
    using Ends = std::map<int, std::vector<std::string>>; ///< Clips by the number of a segment.

    void count(const Object& bucket) {
        const auto clip = mClips.find(keyOf(bucket));
        if (clip == mClips.end()) return;
        clip->second->segmentCount = countOf(bucket);
        clip->second->speakers = speakersOf(bucket);
        for (const Object::Ptr& language : ObjectsOf(bucketsOf(*objectOf(bucket, kLanguages))))
            clip->second->languages.push_back(keyOf(*language));
    }

    /// From the last segments; of clips whose last segment has no words, from the one before it, and so on.
    KsNN_ErrorCode readEnds() {
        Ends wanted;
        for (const auto& [mediaGuid, clip] : mClips) {
            if (clip->segmentCount > 0) wanted[clip->segmentCount - 1].push_back(mediaGuid);
        }
        while (!wanted.empty()) {
            Ends silent;
            while (!wanted.empty()) {
                if (const auto code = readEndsOfSome(wanted, silent)) return code;
            }
            for (auto& [segment, mediaGuids] : silent) {
                if (segment > 0) wanted[segment - 1] = std::move(mediaGuids);
            }
        }
        return KsNN_Success;
    }

    /// Takes as many of `wanted` as a query can name, and leaves in `silent` those without words.
    KsNN_ErrorCode readEndsOfSome(Ends& wanted, Ends& silent) {
        Array::Ptr segments = new Array;
        for (std::size_t clauses = 0; clauses < kClausesOfQuery && !wanted.empty(); clauses += 2) {
            auto taken = wanted.extract(wanted.begin());
            segments->add(allOf({ofAnyClip(taken.mapped()), ofSegment(taken.key())}));
            silent.insert(std::move(taken));
        }
        const Object::Ptr query = object({{"query", anyOf(segments)}, {"size", kMaximumHits}});
        if (const auto code = mOperation.ask("GET", searchPath(mIndex), query)) return code;
        return mOperation.read([&](const Object& answer) {
            for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer))) {
                const Object::Ptr document = sourceOf(*hit);
                const Array::Ptr ends = arrayOf(*document, field::kWordEndsMS);
                if (ends->size() == 0) continue;
                const std::string mediaGuid = mediaGuidOf(*document);
                mClips.at(mediaGuid)->endMS = integerAt(*ends, ends->size() - 1);
                std::erase(silent[segmentOf(*document)], mediaGuid);
            }
            std::erase_if(silent, [](const auto& clips) { return clips.second.empty(); });
            return KsNN_Success;
        });
    }

    Operation& mOperation;
    std::string mIndex;
    std::map<std::string, KsNNClipSummary*> mClips;
};

} // namespace

KsNN_ErrorCode KsNNDatabase::FindClips(const KsNNClipQuery& query, std::vector<KsNNClipSummary>& clips,
                                       bool debug) {
    Operation operation(*this, "KsNNDatabase::FindClips err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    Scroll scroll(operation, mTranscriptIndex, clipsLike(query), kClipsOfPage);
    ContentsReader contents(operation, mTranscriptIndex);
    while (scroll.hasNext()) {
        if (const auto code = scroll.fetch()) return code;
        const auto before = static_cast<std::ptrdiff_t>(clips.size());
        const KsNN_ErrorCode read = operation.guard([&] {
            for (const Object::Ptr& hit : ObjectsOf(scroll.hits())) {
                const Object::Ptr document = sourceOf(*hit);
                clips.push_back({.mediaGuid = mediaGuidOf(*document),
                                 .clipName = clipNameOf(*document),
                                 .projects = projectsOf(*document),
                                 .isComplete = isComplete(*document),
                                 .languages = {},
                                 .speakers = {}});
            }
            return KsNN_Success;
        });
        if (read != KsNN_Success) return read;
        if (!query.withContents) continue;
        if (const auto code = contents.read(clips.begin() + before, clips.end())) return code;
    }
    return KsNN_Success;
}
