#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"

using namespace kestrelml::detail;

namespace {

/// All segments of the project, those that are like the phrase first.
Object::Ptr phraseQuery(const std::string& text, const std::string& projectGuid, int maxResults) {
    const Object::Ptr likePhrase =
        object("match", object(field::kTranscript, object({{"query", text}, {"fuzziness", "AUTO:4,6"}})));
    Object::Ptr query =
        searchFor(object("bool", object({{"must", ofProject(projectGuid)}, {"should", likePhrase}})));
    if (maxResults > 0) query->set("size", maxResults);
    return query;
}

/// Sets the hit's times to those of its first word.
void setTimes(KsNNSearchResults& hit, const Object& document, int startWord) {
    const Array::Ptr starts = arrayOf(document, field::kWordStartsMS);
    const Array::Ptr ends = arrayOf(document, field::kWordEndsMS);
    // The matcher counts words by its own rules, which can find more of them than there are times.
    const bool isTimed = startWord >= 0 && static_cast<std::size_t>(startWord) < starts->size();
    const std::size_t word = isTimed ? static_cast<std::size_t>(startWord) : 0;
    hit.startMS = static_cast<float>(integerAt(*starts, word));
    hit.endMS = static_cast<float>(integerAt(*ends, word));
}

} // namespace

KsNN_ErrorCode KsNNDatabase::Search(const std::string& text, const std::string& projectGuid, float threshold,
                                    std::vector<KsNNSearchResults>& results, int maxResults, bool debug) {
    Operation operation(*this, "KsNNDatabase::Search err: ", debug);
    operation.quoteRuntimeErrors();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr query = phraseQuery(text, projectGuid, maxResults);
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;

    const auto matchSegment = [&](const icu::UnicodeString& phrase, const Object& document) {
        KsNNSearchResults hit;
        hit.mediaGuid = mediaGuidOf(document);
        hit.text = transcriptOf(document);
        hit.projectGuid = projectGuid;
        const std::string language = languageOf(document);
        if (hit.text.empty()) return KsNN_Success;
        std::vector<int> startWords;
        std::vector<float> scores;
        const KsNN_ErrorCode matched = findBestStartingWords(phrase, icu::UnicodeString::fromUTF8(hit.text),
                                                             language, threshold, startWords, scores);
        if (matched != KsNN_Success || startWords.size() != scores.size()) return operation.fail();
        for (std::size_t i = 0; i < startWords.size(); ++i) {
            setTimes(hit, document, startWords[i]);
            hit.score = scores[i];
            results.push_back(hit);
        }
        return KsNN_Success;
    };
    return operation.read([&](const Object& answer) {
        const auto phrase = icu::UnicodeString::fromUTF8(text);
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer))) {
            if (const auto code = matchSegment(phrase, *sourceOf(*hit))) return code;
        }
        return KsNN_Success;
    });
}
