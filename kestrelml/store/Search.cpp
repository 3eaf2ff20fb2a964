#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/text/PhraseMatcher.h"
#include "kestrelml/text/Words.h"

#include <algorithm>
#include <functional>
#include <map>
#include <utility>

using namespace kestrelml::detail;

namespace {

/// All segments that meet the condition, those that are like the phrase first.
Object::Ptr phraseQuery(const std::string& text, const Var& must, int maxSegments) {
    const Object::Ptr likePhrase =
        object("match", object(field::kTranscript, object({{"query", text}, {"fuzziness", "AUTO:4,6"}})));
    Object::Ptr query = searchFor(object("bool", object({{"must", must}, {"should", likePhrase}})));
    if (maxSegments > 0) query->set("size", maxSegments);
    return query;
}

Array::Ptr conditionsOf(const KsNNPhraseQuery& query) {
    Array::Ptr conditions = new Array;
    conditions->add(ofProject(query.projectGuid));
    if (!query.mediaGuid.empty()) conditions->add(ofClip(query.mediaGuid));
    if (!query.speakerID.empty()) conditions->add(withSpeakerLabel(query.speakerID));
    if (!query.speakerGuid.empty()) conditions->add(ofSpeaker(query.speakerGuid));
    return conditions;
}

/// Sets the times of the matched words.
void setTimes(KsNNPhraseHit& hit, const Object& document) {
    const Array::Ptr starts = arrayOf(document, field::kWordStartsMS);
    const Array::Ptr ends = arrayOf(document, field::kWordEndsMS);
    // The matcher counts words by its own rules, which can find more of them than there are times.
    std::size_t first = 0;
    std::size_t last = 0;
    if (static_cast<std::size_t>(hit.wordIndex) < starts->size()) {
        first = static_cast<std::size_t>(hit.wordIndex);
        last = first + static_cast<std::size_t>(std::max(hit.wordCount, 1)) - 1;
    }
    hit.startMS = integerAt(*starts, first);
    hit.wordEndMS = integerAt(*ends, first);
    hit.endMS = integerAt(*ends, std::min(last, ends->size() - 1));
}

/// Sets what the document tells of the segment besides its text.
void describeSegment(const Object& document, KsNNPhraseHit& hit) {
    if (!document.isNull(field::kSegment)) hit.segment = segmentOf(document);
    if (hasSpeakerLabel(document)) hit.speakerID = speakerLabelOf(document);
    if (hasSpeaker(document)) hit.speakerGuid = speakerGuidOf(document);
}

/// Finds a phrase in segments of any language.
class SegmentMatcher {
public:
    SegmentMatcher(const icu::Transliterator* transliterator, const std::string& phrase, float threshold)
        : mTransliterator(transliterator), mPhrase(icu::UnicodeString::fromUTF8(phrase)),
          mThreshold(threshold) {}

    /// Gives `use` each place where the phrase is spoken in a segment.
    void match(const Object& document, const std::function<void(KsNNPhraseHit&&)>& use) {
        KsNNPhraseHit found;
        found.mediaGuid = mediaGuidOf(document);
        found.text = transcriptOf(document);
        found.language = languageOf(document);
        if (found.text.empty()) return;
        describeSegment(document, found);
        const auto text = icu::UnicodeString::fromUTF8(found.text);
        for (const PhraseMatch& match : matcherFor(found.language).findIn(text, mThreshold)) {
            KsNNPhraseHit hit = found;
            hit.wordIndex = match.firstWord;
            hit.wordCount = match.wordCount;
            hit.matchBegin = utf8Length(text, match.start);
            hit.matchEnd = utf8Length(text, match.end);
            hit.score = match.score;
            setTimes(hit, document);
            use(std::move(hit));
        }
    }

private:
    const PhraseMatcher& matcherFor(const std::string& language) {
        const auto found = mMatchers.find(language);
        if (found != mMatchers.end()) return found->second;
        return mMatchers.emplace(language, PhraseMatcher(mTransliterator, mPhrase, language)).first->second;
    }

    const icu::Transliterator* mTransliterator;
    icu::UnicodeString mPhrase;
    float mThreshold;
    std::map<std::string, PhraseMatcher> mMatchers; ///< by language
};

KsNNSearchResults toSearchResult(KsNNPhraseHit&& hit, const std::string& projectGuid) {
    KsNNSearchResults result;
    result.text = std::move(hit.text);
    result.mediaGuid = std::move(hit.mediaGuid);
    result.projectGuid = projectGuid;
    result.score = hit.score;
    result.startMS = static_cast<float>(hit.startMS);
    result.endMS = static_cast<float>(hit.wordEndMS);
    return result;
}

KsNN_ErrorCode matchHits(const Operation& operation, SegmentMatcher& matcher,
                         const std::function<void(KsNNPhraseHit&&)>& use) {
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            matcher.match(*sourceOf(*hit), use);
        return KsNN_Success;
    });
}

/// Fills in the names of the clips, which only segments 0 know.
KsNN_ErrorCode nameClips(Operation& operation, const std::string& index, std::vector<KsNNPhraseHit>& hits,
                         std::size_t first) {
    std::map<std::string, std::string> names;
    for (std::size_t i = first; i < hits.size(); ++i)
        names[hits[i].mediaGuid];
    if (names.empty()) return KsNN_Success;
    std::vector<std::string> clips;
    clips.reserve(names.size());
    for (const auto& [mediaGuid, name] : names)
        clips.push_back(mediaGuid);
    const Object::Ptr query = object(
        {{"query", allOf({ofAnyClip(clips), ofSegment(0)})}, {"size", static_cast<int>(clips.size())}});
    if (const auto code = operation.ask("GET", searchPath(index), query)) return code;
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer))) {
            const Object::Ptr document = sourceOf(*hit);
            names[mediaGuidOf(*document)] = clipNameOf(*document);
        }
        for (std::size_t i = first; i < hits.size(); ++i)
            hits[i].clipName = names[hits[i].mediaGuid];
        return KsNN_Success;
    });
}

} // namespace

KsNN_ErrorCode KsNNDatabase::Search(const std::string& text, const std::string& projectGuid, float threshold,
                                    std::vector<KsNNSearchResults>& results, int maxResults, bool debug) {
    Operation operation(*this, "KsNNDatabase::Search err: ", debug);
    operation.quoteRuntimeErrors();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr query = phraseQuery(text, ofProject(projectGuid), maxResults);
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), query)) return code;
    SegmentMatcher matcher(mTransliterator, text, threshold);
    return matchHits(operation, matcher, [&](KsNNPhraseHit&& hit) {
        results.push_back(toSearchResult(std::move(hit), projectGuid));
    });
}

KsNN_ErrorCode KsNNDatabase::FindPhrase(const KsNNPhraseQuery& query, std::vector<KsNNPhraseHit>& hits,
                                        bool debug) {
    Operation operation(*this, "KsNNDatabase::FindPhrase err: ", debug);
    operation.quoteRuntimeErrors();
    if (const auto index = operation.refresh(mTranscriptIndex); !index.isReady()) return index.code();
    const Object::Ptr body = phraseQuery(query.text, conditionsOf(query), query.maxSegments);
    if (const auto code = operation.ask("GET", searchPath(mTranscriptIndex), body)) return code;
    const std::size_t before = hits.size();
    SegmentMatcher matcher(mTransliterator, query.text, query.threshold);
    const KsNN_ErrorCode matched =
        matchHits(operation, matcher, [&](KsNNPhraseHit&& hit) { hits.push_back(std::move(hit)); });
    if (matched != KsNN_Success) return matched;
    return nameClips(operation, mTranscriptIndex, hits, before);
}
