#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scroll.h"

#include <algorithm>
#include <array>
#include <map>

using namespace kestrelml::detail;

namespace {

constexpr int kClipsOfPage = 1000;
constexpr std::size_t kValuesOfClip = 100;
/// Services refuse queries of more than about a thousand clauses.
constexpr std::size_t kClausesOfQuery = 400;

/// The members that are read: parsing all of them would double the time that ten thousand clips take.
constexpr std::array kFieldsOfClip = {field::kMediaGuid, field::kClipName, field::kProjectList,
                                      field::kProgressComplete};
constexpr std::array kFieldsOfEnd = {field::kMediaGuid, field::kSegment, field::kWordEndsMS};

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
    return object({{"query", allOf(conditions)}, {"_source", toArray(kFieldsOfClip)}});
}

/// Counts the segments by clip; by language and clip; by label and clip; by label, speaker and clip. The few
/// values stand outside: a bucket for every clip with its own inside would make the answer four times as
/// long.
Object::Ptr contentsOf(const std::vector<std::string>& mediaGuids) {
    Object::Ptr clips =
        object(kClips, bucketsBy(exact(field::kMediaGuid), static_cast<int>(mediaGuids.size())));
    const auto byClip = [&](const char* field) {
        Object::Ptr values = bucketsBy(exact(field), kMaximumHits);
        values->set("aggs", clips);
        return values;
    };
    Object::Ptr labels = byClip(field::kSpeakerID);
    labels->set("aggs", object({{kClips, clips->get(kClips)}, {kSpeakers, byClip(field::kSpeakerGuid)}}));
    return object({{"query", ofAnyClip(mediaGuids)},
                   {"size", 0},
                   {"aggs", object({{kClips, clips->get(kClips)},
                                    {kLanguages, byClip(field::kLanguage)},
                                    {kLabels, labels}})}});
}

/// The number of segments that hold each value.
using Counts = std::map<std::string, int>;

/// The values of most segments first, equal ones in their order.
std::vector<std::string> mostFrequent(const Counts& counts) {
    std::vector<std::string> values;
    for (const auto& [value, count] : counts)
        values.push_back(value);
    std::stable_sort(values.begin(), values.end(),
                     [&](const auto& a, const auto& b) { return counts.at(a) > counts.at(b); });
    values.resize(std::min(values.size(), kValuesOfClip));
    return values;
}

/// What the segments of a clip hold.
struct Contents {
    Counts languages;
    Counts labels;
    std::map<std::string, Counts> speakers; ///< By label.

    void describe(KsNNClipSummary& clip) const {
        clip.languages = mostFrequent(languages);
        for (const std::string& label : mostFrequent(labels)) {
            int unassigned = labels.at(label);
            const auto assigned = speakers.find(label);
            if (assigned != speakers.end()) {
                for (const std::string& speaker : mostFrequent(assigned->second)) {
                    clip.speakers.push_back({label, speaker});
                    unassigned -= assigned->second.at(speaker);
                }
            }
            if (unassigned > 0) clip.speakers.push_back({label, ""});
        }
    }
};

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
            count(answer);
            return KsNN_Success;
        });
        return counted == KsNN_Success ? readEnds() : counted;
    }

private:
    using Ends = std::map<int, std::vector<std::string>>; ///< Clips by the number of a segment.

    void count(const Object& answer) {
        std::map<std::string, Contents> contents;
        forEachClip(*aggregationOf(answer, kClips),
                    [](KsNNClipSummary& clip, int segments) { clip.segmentCount = segments; });
        for (const Object::Ptr& language : ObjectsOf(bucketsOf(*aggregationOf(answer, kLanguages))))
            forEachClip(*objectOf(*language, kClips), [&](const KsNNClipSummary& clip, int segments) {
                contents[clip.mediaGuid].languages[keyOf(*language)] = segments;
            });
        for (const Object::Ptr& label : ObjectsOf(bucketsOf(*aggregationOf(answer, kLabels)))) {
            forEachClip(*objectOf(*label, kClips), [&](const KsNNClipSummary& clip, int segments) {
                contents[clip.mediaGuid].labels[keyOf(*label)] = segments;
            });
            for (const Object::Ptr& speaker : ObjectsOf(bucketsOf(*objectOf(*label, kSpeakers))))
                forEachClip(*objectOf(*speaker, kClips), [&](const KsNNClipSummary& clip, int segments) {
                    contents[clip.mediaGuid].speakers[keyOf(*label)][keyOf(*speaker)] = segments;
                });
        }
        for (const auto& [mediaGuid, held] : contents)
            held.describe(*mClips.at(mediaGuid));
    }

    template <typename Visit>
    void forEachClip(const Object& clips, Visit visit) const {
        for (const Object::Ptr& bucket : ObjectsOf(bucketsOf(clips))) {
            const auto clip = mClips.find(keyOf(*bucket));
            if (clip != mClips.end()) visit(*clip->second, countOf(*bucket));
        }
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
        const Object::Ptr query =
            object({{"query", anyOf(segments)}, {"size", kMaximumHits}, {"_source", toArray(kFieldsOfEnd)}});
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
