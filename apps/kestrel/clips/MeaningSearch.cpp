#include "apps/kestrel/clips/MeaningSearch.h"

#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace kestrel {

namespace {

constexpr KsNNDBSemanticSearchImpl kRoute = KsNNSemanticOnnx;
/// The most frames that the index gives.
constexpr int kMostFrames = 10'000;

/// Looks up and reads each clip once.
class FrameReader {
public:
    /// @param project Empty: any.
    FrameReader(KsNNDatabase& store, const std::string& project)
        : mStore(store), mProject(project.empty() ? "" : requireProject(store, project).projectGuid) {}

    /// Whether the frame's clip is complete and of the project.
    bool isWanted(const KsNNSearchResults& frame) { return !projectOf(frame.mediaGuid).empty(); }

    KsNNPhraseHit describe(const KsNNSearchResults& frame) {
        KsNNPhraseHit hit;
        hit.mediaGuid = frame.mediaGuid;
        hit.text = frame.text;
        hit.score = frame.score;
        hit.startMS = hit.endMS = hit.wordEndMS = static_cast<std::int32_t>(frame.startMS);
        const KsNNDB_STTClipEntry& clip = read(frame.mediaGuid);
        hit.clipName = clip.clipName;
        const auto segment =
            std::find_if(clip.segments.begin(), clip.segments.end(), [&](const KsNNDBEntrySeg& candidate) {
                // A frame's time is a float: past four hours it is near the word's time.
                return candidate.transcript == frame.text &&
                       static_cast<float>(startOf(candidate)) == frame.startMS;
            });
        if (segment == clip.segments.end()) return hit;
        hit.segment = segment->segment;
        hit.language = segment->language;
        hit.speakerID = segment->speakerID;
        if (segment->speakerGuid != "Unk") hit.speakerGuid = segment->speakerGuid;
        hit.startMS = startOf(*segment);
        hit.endMS = endOf(*segment);
        return hit;
    }

private:
    const KsNNDB_STTClipEntry& read(const std::string& clip) {
        const auto [found, isNew] = mRead.try_emplace(clip);
        if (!isNew) return found->second;
        check(mStore.GetWholeClip(clip, projectOf(clip), found->second, false), mStore,
              "a clip cannot be read");
        return found->second;
    }

    /// Identifier of the project by which the clip is read; empty when it is not wanted.
    const std::string& projectOf(const std::string& clip) {
        const auto [known, isNew] = mProjects.try_emplace(clip);
        if (!isNew) return known->second;
        if (!mProject.empty() && mProjects.size() > kMostAskedSingly) {
            if (isMember(clip)) known->second = mProject;
            return known->second;
        }
        KsNNClipQuery query;
        query.mediaGuid = clip;
        query.projectGuid = mProject;
        const std::vector<KsNNClipSummary> found = findClips(mStore, query);
        if (!found.empty() && found.front().isComplete && !found.front().projects.empty())
            known->second = mProject.empty() ? found.front().projects.front().projectGuid : mProject;
        return known->second;
    }

    bool isMember(const std::string& clip) {
        if (!mMembers) {
            const std::vector<std::string> clips = completeClips(mStore, mProject);
            mMembers.emplace(clips.begin(), clips.end());
        }
        return mMembers->contains(clip);
    }

    /// Of a small project among many, few of the nearest frames are; then a list costs less than asking.
    static constexpr std::size_t kMostAskedSingly = 100;

    KsNNDatabase& mStore;
    std::string mProject; ///< Identifier; empty: any.
    std::optional<std::set<std::string>> mMembers;
    std::map<std::string, std::string> mProjects;
    std::map<std::string, KsNNDB_STTClipEntry> mRead;
};

} // namespace

std::string whyNoMeaning(KsNNDatabase& store) {
    std::error_code error;
    for (const char* name : {"openclip_model_uint8.onnx", "xlm_roberta_base_tokenizer.onnx"}) {
        if (!std::filesystem::exists(modelFolder() / "semantic" / name, error))
            return "the models of search by meaning are not installed: run scripts/setup";
    }
    bool isThere = false;
    check(store.CheckIndex(isThere, KsNNDatabase::getSemanticIndex(), false), store,
          "the store's indices cannot be listed");
    return isThere ? "" : "no project is indexed by meaning yet: index one in the library";
}

void loadMeaningModels(KsNNDatabase& store) {
    const std::string folder = (modelFolder() / "semantic").string();
    try {
        check(store.LoadSemanticSearchModels(folder, "", kRoute, false), store,
              "the models of search by meaning cannot be loaded");
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& e) {
        throw Failure(
            fmt::format("the models of search by meaning cannot be loaded from {}: {}", folder, e.what()));
    }
}

std::vector<KsNNPhraseHit> findMeaning(KsNNDatabase& store, const MeaningQuery& query) {
    FrameReader reader(store, query.project);
    const auto most = static_cast<std::size_t>(query.maxResults);
    // The index does not filter by project: ask for more until enough frames qualify.
    for (int asked = std::min(4 * query.maxResults, kMostFrames);; asked = std::min(4 * asked, kMostFrames)) {
        std::vector<KsNNSearchResults> frames;
        check(store.SemanticSearchInClip(query.text, query.clip, frames, asked, kRoute, false), store,
              "the search by meaning failed");
        std::vector<KsNNPhraseHit> hits;
        for (const KsNNSearchResults& frame : frames) {
            if (hits.size() == most) break;
            if (reader.isWanted(frame)) hits.push_back(reader.describe(frame));
        }
        const bool isAll = frames.size() < static_cast<std::size_t>(asked) || asked == kMostFrames;
        if (hits.size() == most || isAll) return hits;
    }
}

MeaningIndexing indexMeaning(KsNNDatabase& store, const std::string& project, const Callbacks& callbacks) {
    const std::string guid = requireProject(store, project).projectGuid;
    const std::vector<std::string> clips = completeClips(store, guid);
    MeaningIndexing done;
    for (const std::string& clip : clips) {
        const auto progress = [&](int current, int total, const char* /*text*/) {
            if (callbacks.isCancelled()) return KsNN_Error;
            const double part = total == 0 ? 0.0 : static_cast<double>(current) / total;
            callbacks.report("embedding",
                             (static_cast<double>(done.clips) + part) / static_cast<double>(clips.size()));
            return KsNN_Success;
        };
        int written = 0;
        const KsNN_ErrorCode code = store.WriteSemanticFrames(clip, guid, kRoute, written, progress, false);
        done.segments += written;
        callbacks.throwIfCancelled();
        check(code, store, fmt::format("clip {} cannot be indexed by meaning", clip));
        ++done.clips;
    }
    return done;
}

std::vector<KsNNPhraseHit> mixByRank(const std::vector<KsNNPhraseHit>& byWords,
                                     const std::vector<KsNNPhraseHit>& byMeaning, std::size_t most) {
    constexpr double kDamping = 60.0; // keeps the first place of one list from outweighing both lists' second
    struct Mixed {
        KsNNPhraseHit hit;
        double weight = 0.0;
    };
    std::vector<Mixed> mixed;
    std::map<std::pair<std::string, int>, std::size_t> bySegment;
    const auto add = [&](const std::vector<KsNNPhraseHit>& hits) {
        for (std::size_t rank = 0; rank < hits.size(); ++rank) {
            const KsNNPhraseHit& hit = hits[rank];
            const double weight = 1.0 / (kDamping + static_cast<double>(rank) + 1.0);
            const bool isSegment = hit.segment >= 0;
            const auto known = isSegment ? bySegment.find({hit.mediaGuid, hit.segment}) : bySegment.end();
            if (&hits == &byMeaning && known != bySegment.end()) {
                mixed[known->second].weight += weight;
                continue;
            }
            if (isSegment) bySegment.try_emplace({hit.mediaGuid, hit.segment}, mixed.size());
            mixed.push_back({hit, weight});
        }
    };
    add(byWords);
    add(byMeaning);
    std::stable_sort(mixed.begin(), mixed.end(),
                     [](const Mixed& left, const Mixed& right) { return left.weight > right.weight; });
    mixed.resize(std::min(mixed.size(), most));
    std::vector<KsNNPhraseHit> hits;
    hits.reserve(mixed.size());
    for (Mixed& entry : mixed)
        hits.push_back(std::move(entry.hit));
    return hits;
}

} // namespace kestrel
