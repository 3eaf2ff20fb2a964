#include "apps/kestrel/clips/ExchangeImport.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/ExchangeSpeakers.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/home/Catalogue.h"
#include "apps/kestrel/services/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace kestrel {

namespace {

/// Under this project the library files clips whose own projects the store does not know.
constexpr const char* kPlaceholderId = "KST_Import_ProjectGuid";
constexpr const char* kPlaceholderName = "KST_Import_ProjectName";
/// What the library reports when every document has been checked and nothing has been changed yet.
constexpr std::string_view kAboutToChange = "Overwriting existing transcriptions in database";

/// Somebody who transcribes a clip at this moment would write into the imported one.
void requireNoWriter(KsNNDatabase& store, const ImportPlan& plan) {
    for (const ExchangeClip& clip : plan.unfinished) {
        bool locked = false;
        check(store.GetLockState(clip.id, locked, false), store, "the locks cannot be read");
        if (locked)
            throw Failure(
                fmt::format("{} is being transcribed here: import the file when that is done", clip.name));
    }
}

/// The library replaces complete clips only, and would put the new segments beside those of an unfinished
/// one.
void removeUnfinished(KsNNDatabase& store, const ImportPlan& plan) {
    std::vector<std::string> identifiers;
    for (const ExchangeClip& clip : plan.unfinished)
        identifiers.push_back(clip.id);
    if (!identifiers.empty())
        check(store.HardDeleteEntries(identifiers, false), store, "unfinished transcripts cannot be removed");
}

/// The library's import, which checks every document before it changes the store.
/// @param beginChanges Whether to go on when everything is checked; what must be done first is done there.
void importFile(KsNNDatabase& store, const ImportPlan& plan, const std::function<bool()>& beginChanges,
                const Callbacks& callbacks) {
    bool isChecked = false;
    bool isOnlyCheck = false;
    const KsNNProgressCallback progress = [&](int current, int total, const char* text) {
        if (!isChecked && callbacks.isCancelled()) return KsNN_Error;
        callbacks.report(isChecked ? "writing" : "checking",
                         static_cast<double>(current) / std::max(total, 1));
        if (isChecked || text != kAboutToChange) return KsNN_Success;
        isChecked = true;
        isOnlyCheck = !beginChanges();
        return isOnlyCheck ? KsNN_Error : KsNN_Success;
    };
    const std::string file = plan.request.file.string();
    const KsNN_ErrorCode code = store.ImportDBContentsFromKST(file, plan.project.projectGuid,
                                                              plan.project.projectName, progress, false);
    if (!isChecked && callbacks.isCancelled()) throw Cancelled("cancelled; nothing was changed");
    if (isOnlyCheck) return;
    check(code, store,
          fmt::format("{} cannot be imported{}", file,
                      isChecked ? "; clips that were to be replaced may be missing now, import the file again"
                                : ", nothing was changed"));
}

/// The projects of the store that a clip of the file belongs to.
std::vector<KsNNProject> knownProjects(const ImportPlan& plan, const ExchangeClip& clip) {
    std::vector<KsNNProject> projects;
    for (const std::string& id : clip.projectIds) {
        const auto known = plan.projectNames.find(id);
        if (known != plan.projectNames.end() && id != kPlaceholderId) projects.push_back({known->second, id});
    }
    return projects;
}

/// Files the clips under their projects where the library does not: in the catalogue, and those that belong
/// to no project of the store under the one that the user names, not under the placeholder.
void fileClips(KsNNDatabase& store, const Home& home, const ImportPlan& plan) {
    const Catalogue catalogue(home);
    std::map<std::string, std::string> paths; // as other projects know them
    for (const CatalogueClip& known : catalogue.clips()) {
        if (!known.path.empty()) paths[known.id] = known.path;
    }
    std::vector<CatalogueClip> entries;
    const auto list = [&](const ExchangeClip& clip, const KsNNProject& project) {
        entries.push_back({clip.id, clip.name, paths[clip.id], project.projectName, clip.language});
    };
    for (const ExchangeClip& clip : plan.clips) {
        for (const KsNNProject& project : knownProjects(plan, clip))
            list(clip, project);
    }
    if (!plan.request.project.empty()) {
        for (const ExchangeClip& clip : plan.strangers)
            list(clip, plan.project);
    }
    catalogue.addMissing(entries);
    if (plan.request.project.empty()) return;
    for (const ExchangeClip& clip : plan.strangers) {
        const ClipLock lock(store, home, clip.id, false);
        joinLocked(store, clip.id, plan.project);
    }
}

std::vector<std::string> nameSpeakers(KsNNDatabase& store, const ImportPlan& plan,
                                      const Callbacks& callbacks) {
    ExchangeSpeakers speakers(store, plan.speakers);
    std::vector<std::string> unnamed;
    std::size_t done = 0;
    for (const ExchangeClip& clip : plan.clips) {
        callbacks.report("naming speakers",
                         static_cast<double>(done++) / static_cast<double>(plan.clips.size()));
        std::vector<KsNNProject> projects = knownProjects(plan, clip);
        if (projects.empty()) projects.push_back(plan.project);
        try {
            speakers.assign(clip, projects);
        } catch (const Failure& failure) {
            unnamed.push_back(failure.what());
        }
    }
    return unnamed;
}

Poco::JSON::Array::Ptr names(const std::vector<ExchangeClip>& clips) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const ExchangeClip& clip : clips) {
        auto object = jsonObject();
        object->set("clip", clip.id);
        object->set("clipName", clip.name);
        object->set("segments", clip.segments);
        list->add(object);
    }
    return list;
}

} // namespace

std::string placeholderProject() {
    return kPlaceholderName;
}

ImportPlan planImport(KsNNDatabase& store, const ImportRequest& request) {
    ImportPlan plan;
    plan.request = request;
    ExchangeContents contents = readExchangeContents(store, request.file);
    plan.clips = std::move(contents.clips);
    plan.speakers = std::move(contents.speakers);
    if (plan.clips.empty()) throw Failure(fmt::format("{} holds no clip", request.file.string()));
    std::vector<KsNNProject> projects;
    check(store.GetAllEntries(projects, false), store, "the projects cannot be listed");
    for (const KsNNProject& project : projects)
        plan.projectNames[project.projectGuid] = project.projectName;
    plan.project = request.project.empty() ? KsNNProject{kPlaceholderName, kPlaceholderId}
                                           : findProject(store, request.project);
    plan.projectNames.emplace(plan.project.projectGuid, plan.project.projectName);
    std::map<std::string, bool> isComplete; // of every clip of the store
    for (const KsNNClipSummary& clip : findClips(store, {}))
        isComplete[clip.mediaGuid] = clip.isComplete;
    for (const ExchangeClip& clip : plan.clips) {
        plan.segments += clip.segments;
        if (knownProjects(plan, clip).empty()) plan.strangers.push_back(clip);
        const auto stored = isComplete.find(clip.id);
        if (stored == isComplete.end())
            plan.fresh.push_back(clip);
        else
            (stored->second ? plan.replaced : plan.unfinished).push_back(clip);
    }
    requireNoWriter(store, plan);
    return plan;
}

void checkImport(KsNNDatabase& store, const ImportPlan& plan, const Callbacks& callbacks) {
    importFile(
        store, plan, [] { return false; }, callbacks);
}

std::vector<std::string> runImport(KsNNDatabase& store, const Home& home, const ImportPlan& plan,
                                   const Callbacks& callbacks) {
    KsNNDatabase helper = store; // one object does one operation at a time
    const auto beginChanges = [&] {
        // The service would make a missing index itself, but without the store's mapping.
        check(helper.CreateIndex(KsNNDatabase::getTranscriptIndex(), false), helper,
              "the store cannot be set up");
        removeUnfinished(helper, plan);
        return true;
    };
    importFile(store, plan, beginChanges, callbacks);
    fileClips(store, home, plan);
    return nameSpeakers(store, plan, callbacks);
}

Poco::JSON::Object::Ptr toJson(const ImportPlan& plan, const std::vector<std::string>& unnamed) {
    auto document = jsonObject();
    document->set("segments", plan.segments);
    document->set("new", names(plan.fresh));
    document->set("replaced", names(plan.replaced));
    document->set("unfinishedReplaced", names(plan.unfinished));
    document->set("project", plan.project.projectName);
    document->set("filedUnderProject", names(plan.strangers));
    std::set<std::string> speakers;
    for (const auto& [id, name] : plan.speakers)
        speakers.insert(name);
    document->set("warnings", jsonArray(unnamed));
    document->set("speakers", jsonArray(std::vector<std::string>(speakers.begin(), speakers.end())));
    return document;
}

} // namespace kestrel
