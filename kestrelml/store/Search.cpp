#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Query.h"
#include "kestrelml/store/Request.h"

using namespace kestrelml::detail;

namespace {

/// All segments of the project, those that are like the phrase first.
Object::Ptr phraseQuery(const std::string& text, const std::string& projectGuid, int maxResults) {
    Object::Ptr match = object("query", text);
    match->set("fuzziness", "AUTO:4,6");
    Object::Ptr conditions = object("must", term("projectGuidList.keyword", projectGuid));
    conditions->set("should", object("match", object("transcript", match)));
    Object::Ptr query = object("query", object("bool", conditions));
    if (maxResults > 0) query->set("size", maxResults);
    return query;
}

/// Sets the hit's times to those of its first word.
void setTimes(KsNNSearchResults& hit, const Object& document, int startWord) {
    const Array::Ptr starts = arrayOf(document, "wordStartsMS");
    const Array::Ptr ends = arrayOf(document, "wordEndsMS");
    // The matcher counts words by its own rules, which can find more of them than there are times.
    const bool isTimed = startWord >= 0 && static_cast<std::size_t>(startWord) < starts->size();
    const std::size_t word = isTimed ? static_cast<std::size_t>(startWord) : 0;
    hit.startMS = static_cast<float>(integerAt(*starts, word));
    hit.endMS = static_cast<float>(integerAt(*ends, word));
}

} // namespace

KsNN_ErrorCode KsNNDatabase::Search(const std::string& text, const std::string& projectGuid, float threshold,
                                    std::vector<KsNNSearchResults>& results, int maxResults, bool debug) {
    ResetErrorStr();
    bool exists = false;
    if (const auto code = Refresh(mTranscriptIndex, exists, debug, false)) return code;
    if (!exists) return KsNN_Success;
    Request request(*this, "KsNNDatabase::Search err: ", debug);
    const Object::Ptr query = phraseQuery(text, projectGuid, maxResults);
    if (const auto code = request.sendExpectingOk("GET", mTranscriptIndex + "/_search", query)) return code;

    const auto matchSegment = [&](const icu::UnicodeString& phrase, const Object& document) {
        KsNNSearchResults hit;
        hit.mediaGuid = textOf(document, "mediaGuid");
        hit.text = textOf(document, "transcript");
        hit.projectGuid = projectGuid;
        const std::string language = textOf(document, "language");
        if (hit.text.empty()) return KsNN_Success;
        std::vector<int> startWords;
        std::vector<float> scores;
        const KsNN_ErrorCode matched = findBestStartingWords(phrase, icu::UnicodeString::fromUTF8(hit.text),
                                                             language, threshold, startWords, scores);
        if (matched != KsNN_Success || startWords.size() != scores.size()) return request.fail();
        for (std::size_t i = 0; i < startWords.size(); ++i) {
            setTimes(hit, document, startWords[i]);
            hit.score = scores[i];
            results.push_back(hit);
        }
        return KsNN_Success;
    };
    return request.read([&](const Object& answer) {
        const Array::Ptr hits = hitsOf(answer);
        const auto phrase = icu::UnicodeString::fromUTF8(text);
        try {
            for (std::size_t i = 0; i < hits->size(); ++i) {
                if (const auto code = matchSegment(phrase, *sourceOf(*objectAt(*hits, i)))) return code;
            }
        } catch (const std::runtime_error& caught) {
            return request.failWith(caught.what());
        }
        return KsNN_Success;
    });
}
