#include "kestrelml/stt/AnswerChecks.h"

#include <Poco/JSON/Array.h>

#include <iostream>

namespace kestrelml::stt {
namespace {

using Poco::JSON::Array;
using Poco::JSON::Object;

/// Where the reports of one check go.
struct Reporter {
    KsNNBase& target;
    bool debug;

    KsNN_ErrorCode fail(const std::string& message) const {
        reportError(nullptr, message.c_str(), __LINE__, &target, debug);
        return KsNN_Error;
    }
};

/// Runs the body of a check and turns what it throws into a report.
template <typename Body>
KsNN_ErrorCode guarded(const Reporter& reporter, const char* unknownFailure, Body body) {
    try {
        return body();
    } catch (const Poco::Exception& e) {
        reportError(&e, nullptr, __LINE__, &reporter.target, reporter.debug);
        return KsNN_Error;
    } catch (...) {
        return reporter.fail(unknownFailure);
    }
}

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
    const Reporter reporter{target, debug};
    return guarded(reporter, "KsNNSTT checkSetModelDir error: ", [&] {
        if (!hasAll(answer, {"success", "modelDir"})) return reporter.fail("KsNNSTT JSON err");
        const std::string success = text(answer, "success");
        if (success != "true")
            return reporter.fail("KsNNSTT checkSetModelDir error: " + textIfPresent(answer, "error"));
        if (debug)
            std::cout << "checkSetModelDir result: " << success << ", modelDir " << text(answer, "modelDir")
                      << std::endl;
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkGetSupportedLanguages(const Answer& answer, std::vector<KsNNLanguage>& languages,
                                          KsNNBase& target, bool debug) {
    const Reporter reporter{target, debug};
    const std::string message = "checkGetSupportedLanguages error: ";
    return guarded(reporter, "KsNNSTT checkGetSupportedLanguages error: ", [&] {
        if (!answer->has("success") || answer->has("error"))
            return reporter.fail(message + textIfPresent(answer, "error"));
        const std::string success = text(answer, "success");
        if (success != "true") return reporter.fail("KsNNSTT checkGetSupportedLanguages error: ");
        if (debug) std::cout << "checkGetSupportedLanguages result: " << success << std::endl;
        if (!answer->has("languages") || answer->getObject("languages")->size() == 0)
            return reporter.fail(message);

        const Object::Ptr table = answer->getObject("languages");
        std::vector<std::string> codes = table->getNames();
        std::sort(codes.begin(), codes.end());
        for (const std::string& code : codes) {
            const Object::Ptr names = table->getObject(code);
            const KsNNLanguage language{code, textIfPresent(names, "local"),
                                        textIfPresent(names, "language")};
            if (code.empty() || language.localName.empty() || language.anglicizedName.empty())
                return reporter.fail(message);
            if (debug)
                std::cout << "Code: " << code << " Local language: " << language.localName
                          << " Anglicized language: " << language.anglicizedName << std::endl;
            languages.push_back(language);
        }
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkAudioUpload(const Answer& answer, KsNNBase& target, bool debug) {
    const Reporter reporter{target, debug};
    const char* message = "KsNNSTT checkAudioUpload error: ";
    return guarded(reporter, message, [&] {
        if (!hasAll(answer, {"success", "mediaGuid", "projectGuid", "start_sample", "end_sample"}))
            return reporter.fail(message);
        const std::string success = text(answer, "success");
        if (success != "true") return reporter.fail(message);
        if (debug)
            std::cout << "checkAudioUpload result: " << success << ", mediaGuid " << text(answer, "mediaGuid")
                      << ", " << text(answer, "start_sample") << "-" << text(answer, "end_sample")
                      << std::endl;
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkFinalizeTranscript(const Answer& answer, KsNNDB_STTClipEntry& entry, KsNNBase& target,
                                       bool debug) {
    const Reporter reporter{target, debug};
    const std::string message = "checkFinalizeTranscript error: ";
    return guarded(reporter, message.c_str(), [&] {
        if (!answer->has("success") || answer->has("error"))
            return reporter.fail(message + textIfPresent(answer, "error"));
        if (!answer->getValue<bool>("success")) return reporter.fail(message);
        if (!hasAll(answer, {"total_samples", "mediaGuid", "projectGuid", "model", "device"}))
            return reporter.fail(message);
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
                element->stringify(std::cout);
                std::cout << std::endl;
            }
            segment.wordStartsMS.clear();
            segment.wordEndsMS.clear();
            if (!hasAll(element, {"segment", "transcript", "language", "speakerID"}))
                return reporter.fail(message);
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
    const Reporter reporter{target, false};
    const std::string message = "buildTranscriptFromJson error: ";
    return guarded(reporter, message.c_str(), [&] {
        if (!answer->has("success") || answer->has("error"))
            return reporter.fail(message + textIfPresent(answer, "error"));
        if (!answer->getValue<bool>("success")) return reporter.fail(message);
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
    const Reporter reporter{target, debug};
    const std::string message = "checkCancel error: ";
    return guarded(reporter, message.c_str(), [&] {
        if (!answer->has("success")) return reporter.fail(message);
        const std::string success = text(answer, "success");
        if (debug) std::cout << "checkCancel result: " << success << std::endl;
        if (success != "true") return reporter.fail(message + textIfPresent(answer, "error"));
        return KsNN_Success;
    });
}

KsNN_ErrorCode checkGetProgress(const Answer& answer, float& progress, KsNNBase& target, bool debug) {
    const Reporter reporter{target, debug};
    const char* message = "checkGetProgress error: ";
    progress = 0.0F;
    return guarded(reporter, message, [&] {
        if (!hasAll(answer, {"success", "progress"})) return reporter.fail(message);
        const std::string success = text(answer, "success");
        if (success != "true") return reporter.fail(message);
        progress = answer->getValue<float>("progress");
        if (debug)
            std::cout << "checkGetProgress result: " << success << ", progress " << progress << std::endl;
        return KsNN_Success;
    });
}

} // namespace kestrelml::stt
