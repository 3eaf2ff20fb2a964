#include "apps/kestrel/clips/ExchangeExport.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/clips/ClipFinder.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ExchangeContents.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/clips/SpeakerLookup.h"
#include "apps/kestrel/services/Store.h"
#include "kestrelml/exchange/KsNNExchangeFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace kestrel {

namespace {

/// Documents read by one request: what the export holds in memory at a time.
constexpr int kPageSize = 1000;
/// Clips that one search can ask for by name.
constexpr std::size_t kMostClips = 1000;

/// Identifiers of the projects.
/// @throws Failure that lists what there is instead of one that is unknown.
std::vector<std::string> findProjects(KsNNDatabase& store, const std::vector<std::string>& names) {
    std::vector<std::string> identifiers;
    identifiers.reserve(names.size());
    for (const std::string& name : names)
        identifiers.push_back(requireProject(store, name).projectGuid);
    return identifiers;
}

/// An import marks every clip as complete, so that half a transcript would pass for a whole one.
void requireComplete(KsNNDatabase& store, const std::vector<std::string>& projects) {
    for (const std::string& project : projects) {
        KsNNClipQuery query;
        query.projectGuid = project;
        query.unfinishedOnly = true;
        const std::vector<KsNNClipSummary> unfinished = findClips(store, query);
        if (unfinished.empty()) continue;
        throw Failure(fmt::format("{} of the transcripts {} not complete, such as that of {}: run `kestrel "
                                  "transcribe` on the file first, or name the clips to export",
                                  unfinished.size(), unfinished.size() == 1 ? "is" : "are",
                                  unfinished.front().clipName));
    }
}

/// The clips that the user names, all complete and of one project.
std::vector<std::string> chosenClips(const Home& home, KsNNDatabase& store, const ExportRequest& request,
                                     const std::string& project) {
    if (request.projects.size() != 1)
        throw UsageError("clips can be named in one project only; name one project");
    if (request.clips.size() > kMostClips)
        throw UsageError(fmt::format("{} clips are more than the {} that can be named; export the project",
                                     request.clips.size(), kMostClips));
    const std::vector<std::string> complete = completeClips(store, project);
    std::vector<std::string> found;
    for (const std::string& text : request.clips) {
        const Clip clip = findClip(store, home, text, request.projects.front());
        if (std::find(complete.begin(), complete.end(), clip.id) == complete.end())
            throw Failure(fmt::format("the store holds no complete transcript of {} in project \"{}\"",
                                      clip.name, request.projects.front()));
        found.push_back(clip.id);
    }
    return found;
}

std::size_t countClips(KsNNDatabase& store, const std::vector<std::string>& projects) {
    std::set<std::string> all;
    for (const std::string& project : projects) {
        for (std::string& clip : completeClips(store, project))
            all.insert(std::move(clip));
    }
    return all.size();
}

/// Names of those who speak in the clips that are exported, and of nobody else.
SpeakerNames speakersOf(KsNNDatabase& store, const ExportPlan& plan) {
    const std::set<std::string> chosen(plan.clips.begin(), plan.clips.end());
    SpeakerLookup names(store);
    SpeakerNames found;
    for (const std::string& project : plan.projects) {
        KsNNClipQuery query;
        query.projectGuid = project;
        query.withContents = true;
        for (const KsNNClipSummary& clip : findClips(store, query)) {
            if (!chosen.empty() && !chosen.contains(clip.mediaGuid)) continue;
            for (const KsNNClipSpeaker& speaker : clip.speakers) {
                const std::string name = names.nameOf(speaker.speakerGuid);
                if (!name.empty()) found.emplace(speaker.speakerGuid, name);
            }
        }
    }
    return found;
}

} // namespace

ExportPlan planExport(KsNNDatabase& store, const Home& home, const ExportRequest& request) {
    ExportPlan plan;
    plan.file = request.file;
    plan.projects = findProjects(store, request.projects);
    if (request.clips.empty())
        requireComplete(store, plan.projects);
    else
        plan.clips = chosenClips(home, store, request, plan.projects.front());
    plan.clipCount = plan.clips.empty() ? countClips(store, plan.projects) : plan.clips.size();
    if (plan.clipCount == 0) throw Failure("there is no complete transcript to export");
    return plan;
}

int runExport(KsNNDatabase& store, const ExportPlan& plan, const Callbacks& callbacks) {
    int counter = 0;
    int requests = 0;
    const KsNNProgressCallback progress = [&](int current, int total, const char*) {
        ++requests;
        callbacks.report("exporting", total > 0 ? static_cast<double>(current) / total : 0.0);
        return callbacks.isCancelled() ? KsNN_Error : KsNN_Success;
    };
    const SpeakerNames names = speakersOf(store, plan);
    const std::string file = plan.file.string();
    const KsNN_ErrorCode code = kestrelml::exportExchangeFile(
        store, {plan.clips, plan.projects.front(), plan.projects, kPageSize}, file,
        names.empty() ? "" : speakerPage(names), counter, progress, false);
    if (callbacks.isCancelled())
        throw Cancelled(code == KsNN_Success ? fmt::format("cancelled too late: {} is written", file)
                                             : "cancelled; no file was written");
    check(code, store, fmt::format("{} cannot be exported", file));
    return counter - requests;
}

} // namespace kestrel
