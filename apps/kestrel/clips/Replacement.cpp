#include "apps/kestrel/clips/Replacement.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/ClipWriter.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/SpeakerSnapshot.h"
#include "apps/kestrel/home/Identity.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/Exception.h>
#include <Poco/TemporaryFile.h>
#include <fmt/format.h>

#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr const char* kExtension = ".replacement";

fs::path fileOf(const Home& home, const std::string& clip) {
    return home.runFolder() / (clip + kExtension);
}

/// A segment as the store keeps it.
Poco::JSON::Object::Ptr documentOf(const KsNNDBEntrySeg& segment, const KsNNDB_STTClipEntry& entry,
                                   const std::vector<KsNNProject>& projects) {
    std::vector<std::string> identifiers;
    identifiers.reserve(projects.size());
    for (const KsNNProject& project : projects)
        identifiers.push_back(project.projectGuid);
    auto document = jsonObject();
    document->set("segment", segment.segment);
    document->set("mediaGuid", segment.mediaGuid);
    document->set("projectGuidList", jsonArray(identifiers));
    document->set("transcript", segment.transcript);
    document->set("wordStartsMS", jsonArray(segment.wordStartsMS));
    document->set("wordEndsMS", jsonArray(segment.wordEndsMS));
    if (!segment.wordConfidences.empty())
        document->set("wordConfidences", jsonArray(segment.wordConfidences));
    document->set("language", segment.language);
    document->set("speakerID", segment.speakerID);
    if (segment.segment != 0) return document;
    document->set("model", entry.model);
    document->set("clipName", entry.clipName);
    document->set("audioTracks", entry.audioTracks);
    document->set("clientApp", entry.clientApp);
    document->set("schemaVersion", kSchemaVersion);
    return document;
}

/// The transcript as an exchange file, whose import is the store's own way to replace a clip.
std::string exchangeFileOf(KsNNDatabase& store, const KsNNDB_STTClipEntry& entry,
                           const std::vector<KsNNProject>& projects) {
    Poco::JSON::Array::Ptr documents = new Poco::JSON::Array;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        auto hit = jsonObject();
        hit->set("_source", documentOf(segment, entry, projects));
        documents->add(hit);
    }
    auto hits = jsonObject();
    hits->set("hits", documents);
    auto page = jsonObject();
    page->set("hits", hits);
    Poco::JSON::Array pages;
    pages.add(page);
    std::stringstream plain;
    pages.stringify(plain);
    std::stringstream encrypted;
    check(store.IEncryptStream(plain, encrypted, false), store, "the new transcript cannot be kept");
    return encrypted.str();
}

/// What is known of a replacement until it is complete.
struct Pending {
    std::string clip;
    std::vector<KsNNProject> projects;
    std::string exchangeFile;
    /// Number, label and speaker of each segment: an import drops them.
    std::vector<KsNNDBEntrySeg> speakers;
};

void write(const fs::path& file, const Pending& pending) {
    Poco::JSON::Array::Ptr projects = new Poco::JSON::Array;
    for (const KsNNProject& project : pending.projects) {
        auto object = jsonObject();
        object->set("name", project.projectName);
        object->set("id", project.projectGuid);
        projects->add(object);
    }
    Poco::JSON::Array::Ptr speakers = new Poco::JSON::Array;
    for (const KsNNDBEntrySeg& segment : pending.speakers) {
        auto object = jsonObject();
        object->set("segment", segment.segment);
        object->set("label", segment.speakerID);
        object->set("id", segment.speakerGuid);
        speakers->add(object);
    }
    auto document = jsonObject();
    document->set("clip", pending.clip);
    document->set("speakers", speakers);
    document->set("projects", projects);
    document->set("transcript", pending.exchangeFile);
    replaceFile(file, toText(document), 0600);
}

Pending read(const fs::path& file) {
    auto document = readJson(file);
    try {
        Pending pending{
            document->getValue<std::string>("clip"), {}, document->getValue<std::string>("transcript"), {}};
        auto speakers = document->getArray("speakers");
        for (std::size_t i = 0; speakers && i < speakers->size(); ++i) {
            auto stored = speakers->getObject(static_cast<unsigned>(i));
            KsNNDBEntrySeg& segment = pending.speakers.emplace_back();
            segment.segment = stored->getValue<int>("segment");
            segment.speakerID = stored->getValue<std::string>("label");
            segment.speakerGuid = stored->getValue<std::string>("id");
        }
        auto projects = document->getArray("projects");
        for (std::size_t i = 0; projects && i < projects->size(); ++i) {
            auto project = projects->getObject(static_cast<unsigned>(i));
            pending.projects.push_back(
                {project->getValue<std::string>("name"), project->getValue<std::string>("id")});
        }
        if (pending.projects.empty()) throw Poco::DataFormatException("it names no project");
        return pending;
    } catch (const Poco::Exception& error) {
        throw Failure(fmt::format("{} is damaged: {}", file.string(), error.displayText()));
    }
}

/// The import replaces complete clips only, and would put the new segments beside those of another.
void deleteUnfinished(KsNNDatabase& store, const std::string& clip) {
    int segments = 0;
    bool isComplete = false;
    const std::string failed = "the store cannot be asked for the clip";
    check(store.GetSegmentCount(clip, "ANY", segments, false, kSchemaVersion), store, failed);
    if (segments == 0) return;
    check(store.GetProgressComplete(clip, "ANY", isComplete, false, kSchemaVersion), store, failed);
    if (!isComplete)
        check(store.HardDeleteEntries({clip}, false), store, "the unfinished transcript cannot be deleted");
}

void complete(KsNNDatabase& store, const fs::path& file) {
    const Pending pending = read(file);
    const KsNNProject& project = pending.projects.front();
    const Poco::TemporaryFile exchange;
    writeUserFile(exchange.path(), pending.exchangeFile);
    deleteUnfinished(store, pending.clip);
    check(store.ImportDBContentsFromKST(exchange.path(), project.projectGuid, project.projectName, {}, false),
          store, "the new transcript cannot be stored");
    // The import has filed the clip under its first project, and under those of the others that have clips.
    KsNNClipQuery query;
    query.mediaGuid = pending.clip;
    const std::vector<KsNNClipSummary> stored = findClips(store, query);
    for (const KsNNProject& other : pending.projects) {
        if (stored.empty() || !isInProject(stored.front(), other.projectGuid))
            joinLocked(store, pending.clip, other);
    }
    SpeakerSnapshot(project, {pending.clip, pending.clip, "", project}, pending.speakers).restore(store);
    fs::remove(file);
}

} // namespace

void replaceTranscript(KsNNDatabase& store, const Home& home, const std::string& clip,
                       const KsNNDB_STTClipEntry& entry, const std::vector<KsNNProject>& projects) {
    const fs::path file = fileOf(home, clip);
    write(file, {clip, projects, exchangeFileOf(store, entry, projects), entry.segments});
    try {
        complete(store, file);
    } catch (const Failure& failure) {
        throw Failure(fmt::format("{}; the new transcript is kept, and the next `kestrel transcribe` "
                                  "completes the replacement",
                                  failure.what()));
    }
}

void completeReplacements(KsNNDatabase& store, const Home& home, const Callbacks& callbacks) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(home.runFolder(), error)) {
        if (entry.path().extension() != kExtension) continue;
        const std::string clip = entry.path().stem().string();
        try {
            const ClipLock lock(store, home, clip, false);
            if (!fs::exists(entry.path())) continue; // completed by whoever had the lock before
            complete(store, entry.path());
            callbacks.note(
                fmt::format("the interrupted replacement of {} is complete", shortIdentifier(clip)));
        } catch (const ClipInUse&) {
            continue; // another kestrel is working on it
        } catch (const Failure& failure) {
            callbacks.note(fmt::format("the interrupted replacement of {} cannot be completed: {}",
                                       shortIdentifier(clip), failure.what()));
        }
    }
}

} // namespace kestrel
