#include "kestrelml/stt/AnswerChecks.h"

#include "kestrelml/core/Debug.h"
#include "kestrelml/core/Report.h"

#include <Poco/JSON/Array.h>

namespace kestrelml::stt {
namespace {

using detail::debugLine;
using Poco::JSON::Array;
using Poco::JSON::Object;

bool hasAll(const Answer& answer, std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(), [&](const char* key) { return answer->has(key); });
}

std::string text(const Answer& answer, const char* key) {
    return answer->getValue<std::string>(key);
}

std::string textIfPresent(const Answer& answer, const char* key) {
    return answer->has(key) ? text(answer, key) : std::string();
}

KsNNDBEntrySeg& readWordTimes(const Answer& element, KsNNDBEntrySeg& segment) {
    const Array::Ptr starts = element->getArray("wordStartsMS");
    const Array::Ptr ends = element->getArray("wordEndsMS");
    for (unsigned i = 0; i < starts->size(); ++i) {
        segment.wordStartsMS.push_back(starts->getElement<std::int32_t>(i));
        segment.wordEndsMS.push_back(ends->getElement<std::int32_t>(i));
    }
    segment.wordConfidences.clear();
    if (const Array::Ptr confidences = element->getArray("wordConfidences"))
        for (unsigned i = 0; i < confidences->size(); ++i)
            segment.wordConfidences.push_back(confidences->getElement<std::int32_t>(i));
    if (segment.wordConfidences.size() != segment.wordStartsMS.size()) segment.wordConfidences.clear();
    return segment;
}

KsNNTranscriptWord readWord(const Answer& element) {
    KsNNTranscriptWord word;
    word.startMs = element->getValue<std::int32_t>("startMs");
    word.endMs = element->getValue<std::int32_t>("endMs");
    word.word = text(element, "word");
    word.probability = element->getValue<float>("probability");
    return word;
}

} // namespace

KsNN_ErrorCode checkSetModelDir(const Answer& answer, KsNNBase& target, bool debug) {
    return detail::guarded({"KsNNSTT checkSetModelDir error: "}, &target, debug, [&] {
        if (!hasAll(answer, {"success", "modelDir"})) return detail::fail(&target, "KsNNSTT JSON err", debug);
        const std::string success = text(answer, "success");
        if (success != "true")
            return detail::fail(&target, "KsNNSTT checkSetModelDir error: " + textIfPresent(answer, "error"),
                                debug);
        debugLine(debug, "checkSetModelDir result: ", success, ", modelDir ", text(answer, "modelDir"));
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkGetSupportedLanguages(const Answer& answer, std::vector<KsNNLanguage>& languages,
                                          KsNNBase& target, bool debug) {
    const std::string message = "checkGetSupportedLanguages error: ";
    return detail::guarded({"KsNNSTT checkGetSupportedLanguages error: "}, &target, debug, [&] {
        if (!answer->has("success") || answer->has("error"))
            return detail::fail(&target, message + textIfPresent(answer, "error"), debug);
        const std::string success = text(answer, "success");
        if (success != "true")
            return detail::fail(&target, "KsNNSTT checkGetSupportedLanguages error: ", debug);
        debugLine(debug, "checkGetSupportedLanguages result: ", success);
        if (!answer->has("languages") || answer->getObject("languages")->size() == 0)
            return detail::fail(&target, message, debug);

        const Object::Ptr table = answer->getObject("languages");
        std::vector<std::string> codes = table->getNames();
        std::sort(codes.begin(), codes.end());
        for (const std::string& code : codes) {
            const Object::Ptr names = table->getObject(code);
            const KsNNLanguage language{code, textIfPresent(names, "local"),
                                        textIfPresent(names, "language")};
            if (code.empty() || language.localName.empty() || language.anglicizedName.empty())
                return detail::fail(&target, message, debug);
            debugLine(debug, "Code: ", code, " Local language: ", language.localName,
                      " Anglicized language: ", language.anglicizedName);
            languages.push_back(language);
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkAudioUpload(const Answer& answer, KsNNBase& target, bool debug) {
    const char* message = "KsNNSTT checkAudioUpload error: ";
    return detail::guarded({message}, &target, debug, [&] {
        if (!hasAll(answer, {"success", "mediaGuid", "projectGuid", "start_sample", "end_sample"}))
            return detail::fail(&target, message, debug);
        const std::string success = text(answer, "success");
        if (success != "true") return detail::fail(&target, message, debug);
        debugLine(debug, "checkAudioUpload result: ", success, ", mediaGuid ", text(answer, "mediaGuid"),
                  ", ", text(answer, "start_sample"), "-", text(answer, "end_sample"));
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkFinalizeTranscript(const Answer& answer, KsNNDB_STTClipEntry& entry, KsNNBase& target,
                                       bool debug) {
    const std::string message = "checkFinalizeTranscript error: ";
    return detail::guarded({message.c_str()}, &target, debug, [&] {
        if (!answer->has("success") || answer->has("error"))
            return detail::fail(&target, message + textIfPresent(answer, "error"), debug);
        if (!answer->getValue<bool>("success")) return detail::fail(&target, message, debug);
        if (!hasAll(answer, {"total_samples", "mediaGuid", "projectGuid", "model", "device"}))
            return detail::fail(&target, message, debug);
        answer->getValue<std::int64_t>("total_samples"); // throws unless it is an integer

        entry.model = text(answer, "model");
        entry.audioTracks = text(answer, "audioTracks");
        entry.progressComplete = false;

        KsNNDBEntrySeg segment;
        segment.mediaGuid = text(answer, "mediaGuid");
        segment.projectGuid = text(answer, "projectGuid");
        const Array::Ptr elements = answer->getArray("transcriptSegments");
        if (elements->empty()) {
            segment.transcript.clear();
            segment.segment = 0;
            entry.segments.push_back(segment);
            return KsNN_Success;
        }
        for (unsigned i = 0; i < elements->size(); ++i) {
            const Object::Ptr element = elements->getObject(i);
            if (debug) {
                std::ostringstream json;
                element->stringify(json);
                debugLine(debug, json.str());
            }
            segment.wordStartsMS.clear();
            segment.wordEndsMS.clear();
            if (!hasAll(element, {"segment", "transcript", "language", "speakerID"}))
                return detail::fail(&target, message, debug);
            segment.segment = element->getValue<std::int32_t>("segment");
            segment.transcript = text(element, "transcript");
            segment.language = text(element, "language");
            segment.speakerID = text(element, "speakerID");
            entry.segments.push_back(readWordTimes(element, segment));
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode buildTranscriptFromJson(const Answer& answer, KsNNTranscript& transcript, KsNNBase& target) {
    const std::string message = "buildTranscriptFromJson error: ";
    return detail::guarded({message.c_str()}, &target, false, [&] {
        if (!answer->has("success") || answer->has("error"))
            return detail::fail(&target, message + textIfPresent(answer, "error"), false);
        if (!answer->getValue<bool>("success")) return detail::fail(&target, message, false);
        transcript.model = text(answer, "model");
        transcript.device = text(answer, "device");

        // One segment for the whole loop: a segment without a speaker continues the previous one's.
        KsNNTranscriptSegment segment;
        const Array::Ptr elements = answer->getArray("segments");
        for (unsigned i = 0; i < elements->size(); ++i) {
            const Object::Ptr element = elements->getObject(i);
            segment.words.clear();
            segment.text = text(element, "text");
            segment.language = text(element, "language");
            if (element->has("speakerID")) segment.speakerID = text(element, "speakerID");
            const Array::Ptr words = element->getArray("words");
            for (unsigned j = 0; j < words->size(); ++j)
                segment.words.push_back(readWord(words->getObject(j)));
            transcript.segments.push_back(segment);
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkCancel(const Answer& answer, KsNNBase& target, bool debug) {
    const std::string message = "checkCancel error: ";
    return detail::guarded({message.c_str()}, &target, debug, [&] {
        if (!answer->has("success")) return detail::fail(&target, message, debug);
        const std::string success = text(answer, "success");
        debugLine(debug, "checkCancel result: ", success);
        if (success != "true") return detail::fail(&target, message + textIfPresent(answer, "error"), debug);
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkGetProgress(const Answer& answer, float& progress, KsNNBase& target, bool debug) {
    const char* message = "checkGetProgress error: ";
    progress = 0.0F;
    return detail::guarded({message}, &target, debug, [&] {
        if (!hasAll(answer, {"success", "progress"})) return detail::fail(&target, message, debug);
        const std::string success = text(answer, "success");
        if (success != "true") return detail::fail(&target, message, debug);
        progress = answer->getValue<float>("progress");
        debugLine(debug, "checkGetProgress result: ", success, ", progress ", progress);
        return KsNN_Success;
    });
}

} // namespace kestrelml::stt
