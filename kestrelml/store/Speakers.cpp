#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNSpeakers.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scripts.h"

using namespace kestrelml::detail;

namespace {

constexpr const char* kUniqueSpeakers = "unique_speaker_guids";

/// Counts segments by the speaker that they are assigned to.
/// @param most Number of speakers; 0 leaves it to the service (10).
Object::Ptr speakersQuery(const Object::Ptr& segments, int most) {
    return object({{"query", segments},
                   {"aggs", object(kUniqueSpeakers, bucketsBy(exact(field::kSpeakerGuid), most))},
                   {"size", 0}});
}

KsNN_ErrorCode readSpeakerGuids(const Operation& operation, std::vector<std::string>& guids) {
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& bucket : ObjectsOf(bucketsOf(*aggregationOf(answer, kUniqueSpeakers))))
            guids.push_back(keyOf(*bucket));
        return KsNN_Success;
    });
}

KsNN_ErrorCode appendSpeakers(const Operation& operation, std::vector<KsNNSpeakerKV>& speakers) {
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            speakers.push_back(speakerOf(*hit));
        return KsNN_Success;
    });
}

} // namespace

KsNN_ErrorCode KsNNDatabase::SpeakerCreateNew(KsNNSpeakerKV& speaker, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerCreateNew err: ", debug);
    if (const auto code = operation.create(mSpeakerIndex, speakerDocument(speaker))) return code;
    return operation.read([&](const Object& answer) {
        speaker.speakerGuid = idOf(answer);
        return KsNN_Success;
    });
}

KsNN_ErrorCode kestrelml::createSpeakerAs(KsNNDatabase& store, const KsNNSpeakerKV& speaker, bool debug) {
    Operation operation(store, "createSpeakerAs err: ", debug);
    // The service would choose an identifier, which no segment bears.
    if (speaker.speakerGuid.empty()) return operation.failSaying("The speaker has no identifier");
    Object::Ptr document = speakerDocument(speaker);
    document->set(field::kProjectList, toArray(std::vector<std::string>{}));
    const std::string path =
        documentPath(KsNNDatabase::getSpeakerIndex(), speaker.speakerGuid) + "?op_type=create";
    if (const auto code = operation.send("POST", path, document)) return code;
    return operation.hasStatus({200, 201, 409}) ? KsNN_Success : operation.fail();
}

KsNN_ErrorCode KsNNDatabase::SpeakerGetList(const std::string& projectGuid,
                                            std::vector<KsNNSpeakerKV>& speakers, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerGetList err: ", debug);
    speakers.clear();
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const KsNN_ErrorCode asked =
        operation.ask("GET", searchPath(mTranscriptIndex),
                      speakersQuery(terms(exact(field::kProjectGuidList), std::vector{projectGuid}), 0),
                      "KsNNDatabase::SpeakerGetList err: Failed to retrieve speaker GUIDs err: ");
    if (asked != KsNN_Success) return asked;
    std::vector<std::string> guids;
    if (const auto code = readSpeakerGuids(operation, guids)) return code;

    const KsNN_ErrorCode named =
        operation.ask("GET", searchPath(mSpeakerIndex), searchFor(terms(field::kId, guids)),
                      "KsNNDatabase::SpeakerGetList err: Failed to retrieve speaker names err: ");
    if (named != KsNN_Success) return named;
    return operation.read([&](const Object& answer) {
        if (hitsOf(answer)->size() != guids.size()) {
            return operation.failSaying("Failed to retrieve correct number of speaker names err: ");
        }
        return appendSpeakers(operation, speakers);
    });
}

KsNN_ErrorCode KsNNDatabase::GetSpeakerName(const std::string& speakerGuid, std::string& speakerName,
                                            bool debug) {
    Operation operation(*this, "KsNNDatabase::GetSpeakerName err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const Object::Ptr query = searchFor(allOf({ofDocument(speakerGuid)}));
    if (const auto code = operation.ask("GET", searchPath(mSpeakerIndex), query)) return code;
    return operation.read([&](const Object& answer) {
        const Object::Ptr hit = onlyHitOf(answer);
        if (hit.isNull()) return operation.fail();
        speakerName = speakerOf(*hit).speakerName;
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::GetAllSpeakersInSpeakerIndex(std::vector<std::string>& speakerGuids,
                                                          bool debug) {
    Operation operation(*this, "KsNNDatabase::GetAllSpeakersInSpeakerIndex err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const KsNN_ErrorCode asked =
        operation.ask("GET", searchPath(mSpeakerIndex), searchFor(everything()),
                      "KsNNDatabase::GetAllSpeakersInSpeakerIndex err: Failed to get all speakers GUIDs in "
                      "speaker index err: ");
    if (asked != KsNN_Success) return asked;
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            speakerGuids.push_back(idOf(*hit));
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::GetAllSpeakersInProject(const std::string& projectGuid,
                                                     std::vector<KsNNSpeakerKV>& speakers, bool debug) {
    Operation operation(*this, "KsNNDatabase::GetAllSpeakersInProject err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const Object::Ptr query =
        object({{"query", allOf({speakerOfProject(projectGuid)})}, {"size", kMaximumHits}});
    const KsNN_ErrorCode asked =
        operation.ask("GET", searchPath(mSpeakerIndex), query,
                      "KsNNDatabase::GetAllSpeakersInProject err: Failed to find all "
                      "speakers GUIDs of a specific project err: ");
    if (asked != KsNN_Success) return asked;
    return appendSpeakers(operation, speakers);
}

KsNN_ErrorCode KsNNDatabase::ShareSpeakers(const std::string& mediaGuid, const std::string& projectGuid,
                                           const std::string& projectName, bool debug) {
    Operation operation(*this, "KsNNDatabase::ShareSpeakers err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const KsNN_ErrorCode asked =
        operation.ask("GET", searchPath(mTranscriptIndex), speakersQuery(ofClip(mediaGuid), kMaximumHits));
    if (asked != KsNN_Success) return asked;
    std::vector<std::string> guids;
    if (const auto code = readSpeakerGuids(operation, guids)) return code;
    if (guids.empty()) return KsNN_Success;
    const Object::Ptr strangers = allOf({terms(field::kId, guids)});
    strangers->getObject("bool")->set("must_not", speakerOfProject(projectGuid));
    return operation.updateWhere(mSpeakerIndex, script::addProjectToSpeaker(projectGuid, projectName),
                                 strangers);
}

KsNN_ErrorCode KsNNDatabase::FindReferencesOfSpeaker(const std::string& speakerGuid,
                                                     const std::string& projectGuid, bool& found,
                                                     bool debug) {
    Operation operation(*this, "KsNNDatabase::FindReferencesOfSpeaker err: ", debug);
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr query = searchFor(allOf({ofProject(projectGuid), ofSpeaker(speakerGuid)}));
    const KsNN_ErrorCode asked = operation.ask("GET", searchPath(mTranscriptIndex), query,
                                               "KsNNDatabase::FindReferencesOfSpeaker err: Failed to find "
                                               "references of a speaker in current project err: ");
    if (asked != KsNN_Success) return asked;
    return operation.read([&](const Object& answer) {
        found = hitsOf(answer)->size() > 0;
        return KsNN_Success;
    });
}

KsNN_ErrorCode KsNNDatabase::SpeakerDelete(const std::string& projectGuid, const std::string& speakerGuid,
                                           bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerDelete err: ", debug);
    bool found = false;
    if (const auto code = FindReferencesOfSpeaker(speakerGuid, projectGuid, found, debug)) return code;
    if (found) {
        return operation.failSaying("Failed to delete speaker since there are references of speaker in the "
                                    "current media. Please do a Clear first: ");
    }
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const KsNN_ErrorCode removed = operation.ask(
        "POST", updatePath(mSpeakerIndex, speakerGuid),
        object("script", script::removeProjectFromSpeaker(projectGuid)),
        "KsNNDatabase::SpeakerDelete err: Failed to delete the project from project lists of the "
        "speaker err: ");
    if (removed != KsNN_Success) return removed;

    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const std::string path = documentPath(mSpeakerIndex, speakerGuid);
    const KsNN_ErrorCode asked = operation.ask(
        "GET", path, nullptr, "KsNNDatabase::SpeakerDelete err: Failed to find a speaker err: ");
    if (asked != KsNN_Success) return asked;
    bool isLast = false;
    const KsNN_ErrorCode read = operation.read([&](const Object& answer) {
        isLast = arrayOf(*sourceOf(answer), field::kProjectList)->size() == 0;
        return KsNN_Success;
    });
    if (read != KsNN_Success || !isLast) return read;

    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    return operation.ask("DELETE", path);
}
