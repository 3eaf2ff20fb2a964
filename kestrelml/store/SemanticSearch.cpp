#include "kestrelml/semantic/TextModels.h"
#include "kestrelml/store/Answer.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/store/Operation.h"
#include "kestrelml/store/Schema.h"
#include "kestrelml/store/Scripts.h"

using namespace kestrelml::detail;
using kestrelml::semantic::createTextEmbedder;
using kestrelml::semantic::Embedding;
using kestrelml::semantic::TextModels;

namespace {

constexpr unsigned kQueryTimeoutSeconds = 400;

/// The frames that are most like the vector first.
/// @param mediaGuid Empty: of all clips.
Object::Ptr nearestFrames(const Embedding& vector, const std::string& mediaGuid, int maxResults) {
    const Object::Ptr among = mediaGuid.empty() ? everything() : ofClip(mediaGuid);
    Object::Ptr query = searchFor(
        object("script_score", object({{"query", among}, {"script", script::likenessTo(toArray(vector))}})));
    if (maxResults > 0) query->set("size", maxResults);
    return query;
}

/// Makes a result of a frame; the index adds 1 to the cosine, so that no score is negative.
KsNNSearchResults resultOf(const Object& hit) {
    constexpr float kSteepness = 3.0F;
    constexpr float kMost = 0.999F;
    const Frame frame = frameOf(hit);
    KsNNSearchResults result;
    result.text = frame.description;
    result.mediaGuid = frame.mediaGuid;
    const float cosine = memberOf(hit, "_score").convert<float>() - 1.0F;
    result.score = std::clamp(cosine * kSteepness, 0.0F, kMost);
    result.startMS = static_cast<float>(frame.positionMS);
    result.endMS = result.startMS;
    return result;
}

} // namespace

TextModels KsNNDatabase::textModels() {
    return {mTextModel, mTokenizer, mInferenceEnvironment};
}

KsNN_ErrorCode KsNNDatabase::LoadSemanticSearchModels(std::string modelDir,
                                                      const std::string& extensionLibrary,
                                                      KsNNDBSemanticSearchImpl route, bool debug) {
    ResetErrorStr();
    const auto embedder = createTextEmbedder(route, *this, textModels(), debug);
    return embedder ? embedder->loadModels(modelDir, extensionLibrary) : KsNN_Error;
}

KsNN_ErrorCode KsNNDatabase::GetVectorEmbedding(const std::string& text, float* embedding,
                                                KsNNDBSemanticSearchImpl route, bool debug) {
    const auto embedder = createTextEmbedder(route, *this, textModels(), debug);
    if (!embedder) return KsNN_Error;
    Embedding vector{};
    std::copy_n(embedding, vector.size(), vector.begin());
    const KsNN_ErrorCode code = embedder->embed(text, vector);
    std::copy(vector.begin(), vector.end(), embedding);
    return code;
}

KsNN_ErrorCode KsNNDatabase::SemanticSearch(const std::string& text, const std::string& /*projectGuid*/,
                                            float /*threshold*/, std::vector<KsNNSearchResults>& results,
                                            int maxResults, KsNNDBSemanticSearchImpl route, bool debug) {
    return SemanticSearchInClip(text, "", results, maxResults, route, debug);
}

KsNN_ErrorCode KsNNDatabase::SemanticSearchInClip(const std::string& text, const std::string& mediaGuid,
                                                  std::vector<KsNNSearchResults>& results, int maxResults,
                                                  KsNNDBSemanticSearchImpl route, bool debug) {
    Operation operation(*this, "KsNNDatabase::SemanticSearch err: ", debug);
    operation.quoteRuntimeErrors();
    if (const auto index = operation.refresh(mSemanticIndex); !index.isReady()) return index.code();
    Embedding vector{};
    if (const auto code = GetVectorEmbedding(text, vector.data(), route, debug)) return code;
    operation.allowSeconds(kQueryTimeoutSeconds);
    if (const auto code =
            operation.ask("GET", searchPath(mSemanticIndex), nearestFrames(vector, mediaGuid, maxResults)))
        return code;
    return operation.read([&](const Object& answer) {
        for (const Object::Ptr& hit : ObjectsOf(hitsOf(answer)))
            results.push_back(resultOf(*hit));
        return KsNN_Success;
    });
}
