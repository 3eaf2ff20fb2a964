#include "apps/kestrel/clips/ExchangeSpeakers.h"

#include "apps/kestrel/clips/ProjectSpeakers.h"
#include "apps/kestrel/services/Store.h"
#include "kestrelml/store/KsNNSpeakers.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <utility>

namespace kestrel {

namespace {

/// The store assigns so many segments of a label by one call, the first ones.
constexpr std::size_t kMostAtOnce = 10'000;

} // namespace

void ExchangeSpeakers::assign(const ExchangeClip& clip, const std::vector<KsNNProject>& projects) {
    bool isAnybodyKnown = false;
    for (const auto& [label, speakers] : clip.speakers) {
        std::map<std::string, Segments> found; // the first: of nobody
        for (const auto& [speaker, segments] : speakers) {
            Segments& known = found[find(projects.front(), speaker)];
            known.insert(known.end(), segments.begin(), segments.end());
        }
        if (found.size() == 1 && found.begin()->first.empty()) continue;
        isAnybodyKnown = true;
        assignLabel(clip, projects.front(), found);
    }
    if (!isAnybodyKnown) return;
    for (const KsNNProject& project : projects)
        check(mStore.ShareSpeakers(clip.id, project.projectGuid, project.projectName, false), mStore,
              fmt::format("the speakers of {} cannot be named", clip.name));
}

std::string ExchangeSpeakers::find(const KsNNProject& project, const std::string& speaker) {
    if (speaker.empty()) return "";
    const std::pair key(project.projectGuid, speaker);
    const auto found = mFound.find(key);
    if (found != mFound.end()) return found->second;
    // Remembered only when it succeeded: the next clip tries again.
    return mFound.emplace(key, findOrCreate(project, speaker)).first->second;
}

std::string ExchangeSpeakers::findOrCreate(const KsNNProject& project, const std::string& speaker) {
    const std::string here = mKnown.nameOf(speaker);
    const auto named = mNames.find(speaker);
    if (here.empty() && named == mNames.end()) return "";
    const std::string& name = here.empty() ? named->second : here;
    const std::vector<KsNNSpeakerKV> namesakes = ProjectSpeakers(mStore, project).matching(name);
    if (std::any_of(namesakes.begin(), namesakes.end(),
                    [&](const auto& known) { return known.speakerGuid == speaker; }))
        return speaker;
    // Those of this clip come into the project when all are assigned.
    const std::pair key(project.projectGuid, name);
    const auto member = mMembers.find(key);
    if (member != mMembers.end()) return member->second;
    if (namesakes.empty() && here.empty()) create(speaker, name);
    return mMembers.emplace(key, namesakes.empty() ? speaker : namesakes.front().speakerGuid).first->second;
}

void ExchangeSpeakers::create(const std::string& speaker, const std::string& name) {
    const std::string failed = fmt::format("the speaker \"{}\" cannot be created", name);
    // The service would make a missing index itself, but without the store's mapping.
    check(mStore.CreateIndex(KsNNDatabase::getSpeakerIndex(), false), mStore, failed);
    KsNNSpeakerKV created;
    created.speakerGuid = speaker;
    created.speakerName = name;
    check(kestrelml::createSpeakerAs(mStore, created, false), mStore, failed);
}

void ExchangeSpeakers::assignLabel(const ExchangeClip& clip, const KsNNProject& project,
                                   const std::map<std::string, Segments>& bySpeaker) {
    const std::string failed = fmt::format("the speakers of {} cannot be named", clip.name);
    const auto most =
        std::max_element(bySpeaker.begin(), bySpeaker.end(), [](const auto& left, const auto& right) {
            return left.second.size() < right.second.size();
        });
    std::map<int, std::string> rest;
    for (const auto& [speaker, segments] : bySpeaker) {
        for (const int segment : segments)
            rest[segment] = speaker;
    }
    KsNNSpeakerKV assigned;
    assigned.speakerGuid = most->first;
    std::set<int> cleared; // those that must not keep what one request gives to the whole label
    if (!most->first.empty()) {
        check(mStore.SpeakerRenameAllSegments(clip.id, project.projectGuid, assigned, rest.begin()->first,
                                              false),
              mStore, failed);
        std::size_t position = 0;
        std::erase_if(rest, [&](const auto& one) {
            if (position++ >= kMostAtOnce) return false;
            if (one.second.empty()) cleared.insert(one.first);
            return one.second == most->first;
        });
    }
    for (const auto& [segment, speaker] : rest) {
        assigned.speakerGuid = speaker;
        if (!speaker.empty())
            check(mStore.SpeakerSetSegName(clip.id, project.projectGuid, assigned, segment, false), mStore,
                  failed);
        else if (cleared.contains(segment))
            check(mStore.ClearSpeakerIDPerSeg(clip.id, segment, false), mStore, failed);
    }
}

} // namespace kestrel
