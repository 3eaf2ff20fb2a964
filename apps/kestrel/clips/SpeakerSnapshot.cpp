#include "apps/kestrel/clips/SpeakerSnapshot.h"

#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrel {

namespace {

/// The store assigns so many segments of a label by one call.
constexpr std::size_t kMostAtOnce = 10'000;

} // namespace

SpeakerSnapshot::SpeakerSnapshot(KsNNDatabase& store, KsNNProject project, SpeakerChange change)
    : mProject(std::move(project)), mChange(std::move(change)) {
    for (const ListedSpeaker& speaker : ProjectSpeakers(store, mProject).list())
        mKnown.insert(speaker.id);
    for (const Clip& clip : mChange.clips)
        mParts.push_back(partsOf(readClip(store, clip).segments));
}

SpeakerSnapshot::SpeakerSnapshot(KsNNProject project, Clip clip, const std::vector<KsNNDBEntrySeg>& segments)
    : mProject(std::move(project)), mParts{partsOf(segments)} {
    mChange.clips.push_back(std::move(clip));
}

SpeakerSnapshot::Parts SpeakerSnapshot::partsOf(const std::vector<KsNNDBEntrySeg>& segments) {
    Parts parts;
    for (const KsNNDBEntrySeg& segment : segments)
        parts[segment.segment] = {segment.speakerID, hasSpeaker(segment) ? segment.speakerGuid : ""};
    return parts;
}

void SpeakerSnapshot::restore(KsNNDatabase& store) const {
    const Speakers speakers = restoreSpeakers(store);
    for (std::size_t i = 0; i < mChange.clips.size(); ++i)
        restoreClip(store, mChange.clips[i], mParts[i], speakers);
    removeCreated(store);
}

SpeakerSnapshot::Speakers SpeakerSnapshot::restoreSpeakers(KsNNDatabase& store) const {
    ProjectSpeakers now(store, mProject);
    Speakers speakers;
    for (const KsNNSpeakerKV& before : mChange.speakers) {
        KsNNSpeakerKV& restored = speakers[before.speakerGuid] = before;
        const std::vector<KsNNSpeakerKV> found = now.matching(before.speakerGuid);
        std::string name;
        if (!found.empty()) {
            if (found.front().speakerName != before.speakerName)
                now.rename(found.front(), before.speakerName);
        } else if (store.GetSpeakerName(before.speakerGuid, name, false) != KsNN_Success || name.empty()) {
            const auto made = now.matching(before.speakerName); // by an attempt that ended half way
            restored = made.empty() ? now.create(before.speakerName) : made.front();
        } // else other projects have kept the speaker, who comes back with the segments
    }
    return speakers;
}

void SpeakerSnapshot::restoreClip(KsNNDatabase& store, const Clip& clip, const Parts& before,
                                  const Speakers& speakers) const {
    const Parts now = partsOf(readClip(store, clip).segments);
    std::set<int> withoutSpeaker;
    std::map<std::string, std::set<int>> bySpeaker;
    for (const auto& [segment, part] : before) {
        const auto current = now.find(segment);
        if (current == now.end()) continue; // transcribed again in between
        const auto known = speakers.find(part.speaker);
        const std::string wanted = known == speakers.end() ? part.speaker : known->second.speakerGuid;
        if (current->second.speaker == wanted) continue;
        if (wanted.empty())
            withoutSpeaker.insert(segment);
        else
            bySpeaker[part.speaker].insert(segment);
    }
    clear(store, clip, now, withoutSpeaker);
    for (const auto& [id, segments] : bySpeaker) {
        const auto known = speakers.find(id);
        KsNNSpeakerKV speaker;
        speaker.speakerGuid = id;
        assign(store, clip, before, known == speakers.end() ? speaker : known->second, segments);
    }
    if (!bySpeaker.empty())
        check(store.ShareSpeakers(clip.id, mProject.projectGuid, mProject.projectName, false), store,
              fmt::format("the speakers of {} cannot be restored", clip.name));
}

void SpeakerSnapshot::clear(KsNNDatabase& store, const Clip& clip, const Parts& now,
                            const std::set<int>& segments) const {
    const std::string failed = fmt::format("the speakers of {} cannot be cleared", clip.name);
    std::map<std::string, std::set<int>> bySpeaker;
    for (const auto& [segment, part] : now)
        bySpeaker[part.speaker].insert(segment);
    for (const auto& [speaker, spoken] : bySpeaker) {
        std::set<int> cleared;
        std::set_intersection(spoken.begin(), spoken.end(), segments.begin(), segments.end(),
                              std::inserter(cleared, cleared.end()));
        if (cleared.size() == spoken.size()) { // one request, however many there are
            check(store.ClearSpeakerIDForEntireClip(clip.id, speaker, false), store, failed);
            continue;
        }
        for (const int segment : cleared)
            check(store.ClearSpeakerIDPerSeg(clip.id, segment, false), store, failed);
    }
}

void SpeakerSnapshot::assign(KsNNDatabase& store, const Clip& clip, const Parts& before,
                             const KsNNSpeakerKV& speaker, std::set<int> segments) const {
    const std::string failed = fmt::format("the segments of {} cannot be given back", clip.name);
    KsNNSpeakerKV assigned = speaker;
    std::map<std::string, std::set<int>> byLabel;
    for (const auto& [segment, part] : before)
        byLabel[part.label].insert(segment);
    for (const auto& [label, labelled] : byLabel) {
        // Where the whole label was the speaker's, the store finds its segments by itself.
        if (labelled.size() > kMostAtOnce ||
            !std::includes(segments.begin(), segments.end(), labelled.begin(), labelled.end()))
            continue;
        check(
            store.SpeakerRenameAllSegments(clip.id, mProject.projectGuid, assigned, *labelled.begin(), false),
            store, failed);
        for (const int segment : labelled)
            segments.erase(segment);
    }
    for (const int segment : segments)
        check(store.SpeakerSetSegName(clip.id, mProject.projectGuid, assigned, segment, false), store,
              failed);
}

/// Nobody needs a speaker who came with the change.
void SpeakerSnapshot::removeCreated(KsNNDatabase& store) const {
    if (mChange.newName.empty()) return;
    ProjectSpeakers now(store, mProject);
    for (const ListedSpeaker& speaker : now.list()) {
        if (mKnown.contains(speaker.id) || speaker.isAssigned || speaker.name != mChange.newName) continue;
        now.remove(now.find(speaker.id));
    }
}

} // namespace kestrel
