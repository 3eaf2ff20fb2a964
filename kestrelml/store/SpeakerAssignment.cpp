#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scripts.h"

using namespace kestrelml::detail;

namespace {

/// One segment of a clip, as a project sees it.
struct SegmentPlace {
    const std::string& mediaGuid;
    const std::string& projectGuid;
    int segment;
};

/// Gives `use` the one hit of the segment. A missing index is a success without a call.
/// @param name        The operation, "KsNNDatabase::Name".
/// @param noDocument  Report for a segment that the project does not have; null for the operation's message.
template <typename Use>
KsNN_ErrorCode withSegment(KsNNDatabase& store, Operation& operation, const SegmentPlace& place,
                           const char* name, const char* noDocument, bool debug, Use use) {
    const std::string index = KsNNDatabase::getTranscriptIndex();
    if (const auto state = operation.refresh(index); !state.isReady()) return state.code();
    int count = 0;
    if (store.GetSegmentCount(place.mediaGuid, place.projectGuid, count, debug, kVersion2) != KsNN_Success)
        return operation.fail();
    if (count <= 0 || count <= place.segment) {
        operation.debugLine(name, ": Early return, document not found to edit");
        return noDocument == nullptr ? operation.fail() : operation.failWith(noDocument);
    }
    const Object::Ptr query =
        searchFor(allOf({ofClip(place.mediaGuid), ofProject(place.projectGuid), ofSegment(place.segment)}));
    if (const auto code = operation.ask("GET", searchPath(index), query)) return code;
    Object::Ptr hit;
    const KsNN_ErrorCode read = operation.read([&](const Object& answer) {
        hit = onlyHitOf(answer);
        return hit.isNull() ? operation.fail() : KsNN_Success;
    });
    if (read != KsNN_Success) return read;
    return operation.guard([&] { return use(*hit); });
}

constexpr const char* kUnknownSpeaker = "Speakername not in speaker database ";

/// The segments that meet all conditions, in the order of the clip.
Object::Ptr segmentsQuery(const Object::Ptr& conditions) {
    return object({{"query", conditions}, {"size", kMaximumHits}, {"sort", ascending({field::kSegment})}});
}

/// Assigns every hit of the last answer to a speaker; the first failure ends it.
KsNN_ErrorCode assignHits(KsNNDatabase& store, const Operation& operation, const std::string& speakerGuid,
                          bool debug) {
    std::vector<std::string> identifiers;
    const KsNN_ErrorCode read = operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            identifiers.push_back(idOf(*hit));
        return KsNN_Success;
    });
    if (read != KsNN_Success) return read;
    for (const std::string& id : identifiers) {
        const KsNN_ErrorCode code =
            store.SpeakerUpdateEntryField(id, field::kSpeakerGuid, speakerGuid, false, debug);
        if (code != KsNN_Success) return code;
    }
    return KsNN_Success;
}

/// Runs a clearing script on the segments that meet all conditions.
KsNN_ErrorCode clear(Operation& operation, const Object::Ptr& script, Conditions conditions) {
    const std::string index = KsNNDatabase::getTranscriptIndex();
    if (const auto state = operation.refresh(index); !state.isReady()) return state.code();
    return operation.updateWhere(index, script, conditions);
}

} // namespace

KsNN_ErrorCode KsNNDatabase::SpeakerUpdateEntryField(const std::string& documentId, const std::string& field,
                                                     const std::string& value, bool /*unused*/, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerUpdateEntryField err: ", debug);
    return operation.ask("POST", updatePath(mTranscriptIndex, documentId), changeOf(field, value));
}

KsNN_ErrorCode KsNNDatabase::SpeakerSetSegName(const std::string& mediaGuid, const std::string& projectGuid,
                                               KsNNSpeakerKV& speaker, int segment, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerSetSegName err: ", debug);
    return withSegment(*this, operation, {mediaGuid, projectGuid, segment}, "KsNNDatabase::SpeakerSetSegName",
                       nullptr, debug, [&](const Object& hit) {
                           if (speaker.speakerGuid.empty()) return operation.failSaying(kUnknownSpeaker);
                           return SpeakerUpdateEntryField(idOf(hit), field::kSpeakerGuid, speaker.speakerGuid,
                                                          false, debug);
                       });
}

KsNN_ErrorCode KsNNDatabase::CorrectSpeakerID(const std::string& mediaGuid, const std::string& projectGuid,
                                              const std::string& speakerID, int segment, bool debug) {
    Operation operation(*this, "KsNNDatabase::CorrectSpeakerID err: ", debug);
    return withSegment(
        *this, operation, {mediaGuid, projectGuid, segment}, "KsNNDatabase::CorrectSpeakerID",
        "KsNNDatabase::CorrectSpeakerID err: No document present to edit ", debug, [&](const Object& hit) {
            return SpeakerUpdateEntryField(idOf(hit), field::kSpeakerID, speakerID, false, debug);
        });
}

KsNN_ErrorCode KsNNDatabase::SpeakerRenameAllSegments(const std::string& mediaGuid,
                                                      const std::string& projectGuid, KsNNSpeakerKV& speaker,
                                                      int segment, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerRenameAllSegments err: ", debug);
    return withSegment(*this, operation, {mediaGuid, projectGuid, segment},
                       "KsNNDatabase::SpeakerRenameAllSegments", nullptr, debug, [&](const Object& hit) {
                           const std::string label = speakerLabelOf(*sourceOf(hit));
                           if (speaker.speakerGuid.empty()) return operation.failSaying(kUnknownSpeaker);
                           const Object::Ptr query = segmentsQuery(
                               allOf({ofClip(mediaGuid), ofProject(projectGuid), withSpeakerLabel(label)}));
                           if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query))
                               return code;
                           return assignHits(*this, operation, speaker.speakerGuid, debug);
                       });
}

KsNN_ErrorCode KsNNDatabase::SpeakerRenameBasedOnSpeakerGuid(KsNNSpeakerKV& speaker,
                                                             const std::string& newName, bool debug) {
    Operation operation(*this, "KsNNDatabase::SpeakerRenameBasedOnSpeakerGuid err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const KsNN_ErrorCode code = operation.ask(
        "POST", updatePath(mSpeakerIndex, speaker.speakerGuid), changeOf(field::kSpeakerName, newName),
        "KsNNDatabase::SpeakerRenameBasedOnSpeakerGuid err: Failed to rename the speaker err: ");
    if (code == KsNN_Success) speaker.speakerName = newName;
    return code;
}

KsNN_ErrorCode KsNNDatabase::MergeSpeakersInProject(const std::string& projectGuid,
                                                    const std::string& firstGuid,
                                                    const std::string& secondGuid,
                                                    const std::string& keepGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::MergeSpeakersInProject err: ", debug);
    if (const auto index = operation.refresh(mSpeakerIndex); !index.isReady()) return index.code();
    const IndexState transcripts = operation.refresh(mTranscriptIndex);
    if (transcripts.code() != KsNN_Success) return transcripts.code();
    if (transcripts.isReady()) {
        if (firstGuid.empty() || secondGuid.empty() || keepGuid.empty()) {
            return operation.failSaying("SpeakerGuid is empty, invalid input to function ");
        }
        const Object::Ptr ofEither = object(
            "bool", object("should", toArray(Conditions{ofSpeaker(firstGuid), ofSpeaker(secondGuid)})));
        const Object::Ptr query = segmentsQuery(allOf({ofProject(projectGuid), ofEither}));
        if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
        if (const auto code = assignHits(*this, operation, keepGuid, debug)) return code;
    }
    return DeleteSpeakerGuidInMerge(projectGuid, firstGuid, secondGuid, keepGuid, debug);
}

KsNN_ErrorCode KsNNDatabase::DeleteSpeakerGuidInMerge(const std::string& projectGuid,
                                                      const std::string& firstGuid,
                                                      const std::string& secondGuid,
                                                      const std::string& keepGuid, bool debug) {
    for (const std::string& guid : {firstGuid, secondGuid}) {
        if (guid == keepGuid) continue;
        if (const auto code = SpeakerDelete(projectGuid, guid, debug)) return code;
    }
    return KsNN_Success;
}

KsNN_ErrorCode KsNNDatabase::ClearSpeakerIDForEntireClip(const std::string& mediaGuid,
                                                         const std::string& speakerGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::ClearSpeakerIDForEntireClip err: ", debug);
    return clear(operation, script::clearSpeakerOfClip(), {ofClip(mediaGuid), ofSpeaker(speakerGuid)});
}

KsNN_ErrorCode KsNNDatabase::ClearSpeakerIDForEntireProject(const std::string& projectGuid,
                                                            const std::string& speakerGuid, bool debug) {
    Operation operation(*this, "KsNNDatabase::ClearSpeakerIDForEntireProject err: ", debug);
    return clear(operation, script::clearSpeakerOfProject(),
                 {ofProject(projectGuid), ofSpeaker(speakerGuid)});
}

KsNN_ErrorCode KsNNDatabase::ClearSpeakerIDPerSeg(const std::string& mediaGuid, int segment, bool debug) {
    Operation operation(*this, "KsNNDatabase::ClearSpeakerIDPerSeg err: ", debug);
    return clear(operation, script::clearSpeakerOfSegment(), {ofClip(mediaGuid), ofSegment(segment)});
}
