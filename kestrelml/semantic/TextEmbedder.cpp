#include "kestrelml/semantic/TextEmbedder.h"

#include "kestrelml/core/Debug.h"
#include "kestrelml/core/RESTCall.h"
#include "kestrelml/core/Report.h"
#include "kestrelml/semantic/TextModels.h"
#include "kestrelml/stt/KestrelMLCythonIF.h"

#include <Poco/JSON/Array.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <numeric>

namespace kestrelml::semantic {
namespace {

using Poco::JSON::Object;

constexpr const char* kLoadFailed = "KsNNDatabase::LoadSemanticSearchModels err: ";
constexpr const char* kNoEmbedding = "KsNNDB checkGetVectorEmbedding error: ";
constexpr const char* kServiceUri = "http://127.0.0.1:5000/";
constexpr unsigned kServiceTimeoutSeconds = 400;

std::string successOf(const Object& answer) {
    const Poco::Dynamic::Var success = answer.get("success");
    return success.isEmpty() ? "" : success.convert<std::string>();
}

/// Reads the answer of the service or of the module.
KsNN_ErrorCode readEmbedding(const Object& answer, Embedding& embedding, KsNNBase& caller, bool debug) {
    const detail::OnException rule{"KsNNDB checkGetVectorEmbedding err: ", KsNN_Error, nullptr, true};
    return detail::guarded(rule, &caller, debug, [&] {
        const Poco::Dynamic::Var status = answer.get("status");
        const Poco::JSON::Array::Ptr numbers = answer.getArray("vectorEmbedding");
        const bool isGiven = !status.isEmpty() && status.convert<std::string>() == "OK" && !numbers.isNull();
        if (!isGiven || numbers->size() < kDimension) return detail::fail(&caller, kNoEmbedding, debug);
        Embedding read{};
        for (std::size_t i = 0; i < kDimension; ++i)
            read[i] = numbers->get(static_cast<unsigned>(i)).convert<float>();
        embedding = read;
        return KsNN_Success;
    });
}

/// The local speech and embedding service.
class ServiceEmbedder : public TextEmbedder {
public:
    ServiceEmbedder(KsNNBase& caller, bool debug) : mCaller(caller), mDebug(debug) {}

    KsNN_ErrorCode loadModels(const std::string& modelDir, const std::string& extensionLibrary) override {
        Object::Ptr body = new Object;
        body->set("modelDir", modelDir);
        body->set("onnxRTExtLibPath", extensionLibrary);
        if (const auto code = ask("PUT", "set_semantic_search_model_dir", body)) return code;
        if (mStatus != 200 && mStatus != 201) {
            return detail::fail(&mCaller, "KsNNDatabase::LoadSemanticSearchModels error: ", mDebug);
        }
        const detail::OnException rule{"KsNNSTT checkSetModelDir error: "};
        return detail::guarded(rule, &mCaller, mDebug, [&] {
            const std::string success = successOf(*mAnswer);
            if (success != "true") {
                return detail::fail(&mCaller, "KsNNDB::LoadSemanticSearchModels JSON error", mDebug);
            }
            detail::debugLine(mDebug, "KsNNDB::LoadSemanticSearchModels result: ", success);
            return KsNN_Success;
        });
    }

    KsNN_ErrorCode embed(const std::string& text, Embedding& embedding) override {
        mCaller.ResetErrorStr();
        Object::Ptr body = new Object;
        body->set("query", text);
        if (const auto code = ask("GET", "get_text_vector_embedding", body)) return code;
        if (mStatus != 200) return detail::fail(&mCaller, "KsNNDatabase::GetVectorEmbedding err: ", mDebug);
        return readEmbedding(*mAnswer, embedding, mCaller, mDebug);
    }

private:
    /// Sends to the embedding service, which is not the one that the caller otherwise talks to.
    KsNN_ErrorCode ask(const char* method, const char* path, const Object::Ptr& body) {
        const std::string uri = mCaller.GetURI();
        mCaller.SetURI(kServiceUri);
        const KsNN_ErrorCode code = RESTCall(method, path, kServiceTimeoutSeconds, body, mAnswer, mStatus,
                                             &mCaller, false, false, mDebug);
        mCaller.SetURI(uri.c_str());
        return code;
    }

    KsNNBase& mCaller;
    bool mDebug;
    Object::Ptr mAnswer;
    unsigned mStatus = 0;
};

/// The transcription module in the embedded interpreter.
class InterpreterEmbedder : public TextEmbedder {
public:
    InterpreterEmbedder(KsNNBase& caller, bool debug) : mCaller(caller), mDebug(debug) {}

    KsNN_ErrorCode loadModels(const std::string& modelDir, const std::string& extensionLibrary) override {
        return withBridge(kLoadFailed, [&](KestrelMLCythonIF& bridge) {
            const auto answer = bridge.loadSemanticSearchModels(modelDir, extensionLibrary);
            if (successOf(*answer) == "true") return KsNN_Success;
            return detail::fail(&mCaller, kLoadFailed, mDebug);
        });
    }

    KsNN_ErrorCode embed(const std::string& text, Embedding& embedding) override {
        return withBridge("KsNNDB checkGetVectorEmbedding err: ", [&](KestrelMLCythonIF& bridge) {
            return readEmbedding(*bridge.semanticSearchTextEmbedding(text), embedding, mCaller, mDebug);
        });
    }

private:
    template <typename Step>
    KsNN_ErrorCode withBridge(const char* failure, Step step) {
        const detail::OnException rule{failure, KsNN_Error, nullptr, true};
        return detail::guarded(rule, &mCaller, mDebug, [&] {
            const auto bridge = KestrelMLCythonIF::get();
            if (bridge->isSetUp()) return step(*bridge);
            detail::fail(&mCaller, bridge->setUpFailure(), mDebug);
            return KsNN_SetupFailed;
        });
    }

    KsNNBase& mCaller;
    bool mDebug;
};

/// Models in this process. ONNX Runtime's exceptions leave `loadModels`.
class InProcessEmbedder : public TextEmbedder {
public:
    InProcessEmbedder(KsNNBase& caller, TextModels models, bool debug)
        : mCaller(caller), mModels(models), mDebug(debug) {}

    KsNN_ErrorCode loadModels(const std::string& modelDir, const std::string& /*extensionLibrary*/) override {
        mModels.load(modelDir, mDebug);
        return KsNN_Success;
    }

    KsNN_ErrorCode embed(const std::string& text, Embedding& embedding) override {
        std::vector<float> values;
        try {
            values = mModels.embed(text);
        } catch (const std::exception& caught) {
            std::cerr << "An error occurred: " << caught.what() << '\n';
            return KsNN_Success;
        }
        if (values.size() < kDimension) return detail::fail(&mCaller, kNoEmbedding, mDebug);
        values.resize(kDimension);
        const float norm = std::sqrt(std::inner_product(values.begin(), values.end(), values.begin(), 0.0F));
        // Zeros have no direction, and JSON has no way to write the NaN that scaling would make of them.
        if (!std::isfinite(norm) || norm == 0.0F) return detail::fail(&mCaller, kNoEmbedding, mDebug);
        std::transform(values.begin(), values.end(), embedding.begin(),
                       [norm](float value) { return value / norm; });
        return KsNN_Success;
    }

private:
    KsNNBase& mCaller;
    TextModels mModels;
    bool mDebug;
};

} // namespace

std::unique_ptr<TextEmbedder> createTextEmbedder(KsNNDBSemanticSearchImpl route, KsNNBase& caller,
                                                 TextModels models, bool debug) {
    switch (route) {
    case KsNNSemanticLocalService:
        return std::make_unique<ServiceEmbedder>(caller, debug);
    case KsNNSemanticInterpreter:
        return std::make_unique<InterpreterEmbedder>(caller, debug);
    case KsNNSemanticOnnx:
        return std::make_unique<InProcessEmbedder>(caller, models, debug);
    }
    return nullptr;
}

} // namespace kestrelml::semantic
