#include "apps/kestrel/clips/ProjectSpeakers.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

namespace kestrel {

namespace {

std::string labelsOf(const KsNNDB_STTClipEntry& entry) {
    std::set<std::string> labels;
    for (const KsNNDBEntrySeg& segment : entry.segments)
        labels.insert(segment.speakerID);
    std::string text;
    for (const std::string& label : labels)
        text += (text.empty() ? "" : ", ") + label;
    return text;
}

} // namespace

ProjectSpeakers::ProjectSpeakers(KsNNDatabase& store, KsNNProject project)
    : mStore(store), mProject(std::move(project)) {
}

std::vector<KsNNSpeakerKV> ProjectSpeakers::read() {
    std::vector<KsNNSpeakerKV> speakers;
    check(mStore.GetAllSpeakersInProject(mProject.projectGuid, speakers, false), mStore,
          "the speakers cannot be listed");
    std::sort(speakers.begin(), speakers.end(), [](const auto& left, const auto& right) {
        return std::tie(left.speakerName, left.speakerGuid) < std::tie(right.speakerName, right.speakerGuid);
    });
    return speakers;
}

std::vector<ListedSpeaker> ProjectSpeakers::list() {
    std::vector<ListedSpeaker> speakers;
    for (const KsNNSpeakerKV& speaker : read())
        speakers.push_back({speaker.speakerGuid, speaker.speakerName, isAssigned(speaker)});
    return speakers;
}

std::vector<KsNNSpeakerKV> ProjectSpeakers::matching(const std::string& text) {
    std::vector<KsNNSpeakerKV> found = read();
    std::erase_if(found, [&](const KsNNSpeakerKV& speaker) {
        return speaker.speakerName != text && speaker.speakerGuid != text;
    });
    return found;
}

KsNNSpeakerKV ProjectSpeakers::find(const std::string& text) {
    const std::vector<KsNNSpeakerKV> found = matching(text);
    if (found.size() == 1) return found.front();
    std::string message =
        found.empty()
            ? fmt::format("project \"{}\" has no speaker \"{}\"", mProject.projectName, text)
            : fmt::format("{} speakers are called \"{}\"; name one by its identifier", found.size(), text);
    const std::vector<KsNNSpeakerKV> listed = found.empty() ? read() : found;
    if (listed.empty()) message += "; add one with `kestrel speakers create`";
    for (const KsNNSpeakerKV& speaker : listed)
        message += fmt::format("\n    {}  {}", speaker.speakerGuid, speaker.speakerName);
    throw Failure(message);
}

std::vector<Clip> ProjectSpeakers::clipsOf(const KsNNSpeakerKV& speaker) {
    KsNNClipQuery query;
    query.projectGuid = mProject.projectGuid;
    query.withContents = true;
    std::vector<Clip> clips;
    for (const KsNNClipSummary& clip : findClips(mStore, query)) {
        const bool speaks =
            std::any_of(clip.speakers.begin(), clip.speakers.end(), [&](const KsNNClipSpeaker& known) {
                return known.speakerGuid == speaker.speakerGuid;
            });
        if (speaks) clips.push_back({clip.mediaGuid, clip.clipName, "", mProject});
    }
    return clips;
}

void ProjectSpeakers::requireNewName(const std::string& name) {
    const std::vector<KsNNSpeakerKV> all = read();
    if (std::any_of(all.begin(), all.end(), [&](const auto& speaker) { return speaker.speakerName == name; }))
        throw Failure(fmt::format("project \"{}\" has a speaker \"{}\" already", mProject.projectName, name));
}

bool ProjectSpeakers::isAssigned(const KsNNSpeakerKV& speaker) {
    bool found = false;
    check(mStore.FindReferencesOfSpeaker(speaker.speakerGuid, mProject.projectGuid, found, false), mStore,
          fmt::format("the segments of \"{}\" cannot be listed", speaker.speakerName));
    return found;
}

KsNNSpeakerKV ProjectSpeakers::create(const std::string& name) {
    requireNewName(name);
    KsNNSpeakerKV speaker;
    speaker.speakerName = name;
    speaker.projectName = mProject.projectName;
    speaker.projectGuid = mProject.projectGuid;
    check(mStore.SpeakerCreateNew(speaker, false), mStore,
          fmt::format("the speaker \"{}\" cannot be created", name));
    return speaker;
}

void ProjectSpeakers::rename(KsNNSpeakerKV speaker, const std::string& name) {
    requireNewName(name);
    check(mStore.SpeakerRenameBasedOnSpeakerGuid(speaker, name, false), mStore,
          fmt::format("\"{}\" cannot be renamed", speaker.speakerName));
}

void ProjectSpeakers::merge(const KsNNSpeakerKV& merged, const KsNNSpeakerKV& kept) {
    const std::string failed =
        fmt::format("\"{}\" cannot become \"{}\"", merged.speakerName, kept.speakerName);
    // The store gives over 10,000 segments at a time, counting those that `kept` has: what is left keeps the
    // merged speaker alive, and is given over by naming that speaker alone.
    KsNN_ErrorCode code = mStore.MergeSpeakersInProject(mProject.projectGuid, kept.speakerGuid,
                                                        merged.speakerGuid, kept.speakerGuid, false);
    constexpr int kMostRounds = 1000;
    for (int round = 0; round < kMostRounds && code != KsNN_Success && isAssigned(merged); ++round)
        code = mStore.MergeSpeakersInProject(mProject.projectGuid, merged.speakerGuid, merged.speakerGuid,
                                             kept.speakerGuid, false);
    const std::vector<KsNNSpeakerKV> left = read();
    const bool isGone = std::none_of(left.begin(), left.end(), [&](const KsNNSpeakerKV& speaker) {
        return speaker.speakerGuid == merged.speakerGuid;
    });
    if (!isGone) check(code, mStore, failed);
}

void ProjectSpeakers::clear(const KsNNSpeakerKV& speaker) {
    check(mStore.ClearSpeakerIDForEntireProject(mProject.projectGuid, speaker.speakerGuid, false), mStore,
          fmt::format("\"{}\" cannot be cleared", speaker.speakerName));
}

void ProjectSpeakers::remove(const KsNNSpeakerKV& speaker) {
    if (isAssigned(speaker))
        throw Failure(fmt::format("segments of project \"{}\" are assigned to \"{}\"; clear them first with "
                                  "`kestrel speakers clear`",
                                  mProject.projectName, speaker.speakerName));
    check(mStore.SpeakerDelete(mProject.projectGuid, speaker.speakerGuid, false), mStore,
          fmt::format("\"{}\" cannot be deleted", speaker.speakerName));
}

std::size_t ProjectSpeakers::assignLabel(const Clip& clip, KsNNSpeakerKV speaker, const std::string& label) {
    const KsNNDB_STTClipEntry entry = readClip(mStore, clip);
    const auto hasLabel = [&](const KsNNDBEntrySeg& segment) { return segment.speakerID == label; };
    const auto first = std::find_if(entry.segments.begin(), entry.segments.end(), hasLabel);
    if (first == entry.segments.end())
        throw Failure(fmt::format("no segment of {} has the label \"{}\"; there are: {}", clip.name, label,
                                  labelsOf(entry)));
    check(mStore.SpeakerRenameAllSegments(clip.id, mProject.projectGuid, speaker, first->segment, false),
          mStore, fmt::format("\"{}\" cannot be assigned", speaker.speakerName));
    return static_cast<std::size_t>(std::count_if(entry.segments.begin(), entry.segments.end(), hasLabel));
}

void ProjectSpeakers::assignSegment(const Clip& clip, KsNNSpeakerKV speaker, int segment) {
    check(mStore.SpeakerSetSegName(clip.id, mProject.projectGuid, speaker, segment, false), mStore,
          fmt::format("\"{}\" cannot be assigned to segment {} of {}", speaker.speakerName, segment,
                      clip.name));
}

void ProjectSpeakers::clearClip(const Clip& clip, const KsNNSpeakerKV& speaker) {
    check(mStore.ClearSpeakerIDForEntireClip(clip.id, speaker.speakerGuid, false), mStore,
          fmt::format("\"{}\" cannot be cleared from {}", speaker.speakerName, clip.name));
}

void ProjectSpeakers::clearSegment(const Clip& clip, const KsNNSpeakerKV& speaker, int segment) {
    const KsNNDB_STTClipEntry entry = readClip(mStore, clip);
    if (std::none_of(entry.segments.begin(), entry.segments.end(), [&](const KsNNDBEntrySeg& one) {
            return one.segment == segment && one.speakerGuid == speaker.speakerGuid;
        }))
        throw Failure(fmt::format("segment {} of {} is not assigned to \"{}\"", segment, clip.name,
                                  speaker.speakerName));
    check(mStore.ClearSpeakerIDPerSeg(clip.id, segment, false), mStore,
          fmt::format("the speaker of segment {} of {} cannot be cleared", segment, clip.name));
}

} // namespace kestrel
