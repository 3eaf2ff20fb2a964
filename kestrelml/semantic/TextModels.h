#pragma once

/// @file
/// The text model and its tokenizer in this process, on ONNX Runtime. Internal.

#include "kestrelml/semantic/TextEmbedder.h"

#include <memory>
#include <onnxruntime_cxx_api.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestrelml::semantic {

/// Access to the models that a store owns. Copies refer to the same models.
class TextModels {
public:
    TextModels(std::shared_ptr<Ort::Session>& textModel, std::shared_ptr<Ort::Session>& tokenizer,
               std::shared_ptr<Ort::Env>& environment)
        : mTextModel(textModel), mTokenizer(tokenizer), mEnvironment(environment) {}

    /// Replaces the models, or leaves them as they are when it throws.
    /// @param describe Print each model's inputs and outputs.
    /// @throws Ort::Exception when a model or the library of extension operators cannot be loaded.
    void load(const std::string& modelDir, bool describe);
    /// Forgets the models. The sessions go before the environment they live in.
    void release();

    /// @returns the embedding at its full length, not yet scaled to unit length.
    /// @throws std::exception when no models are loaded, or one of them fails.
    std::vector<float> embed(const std::string& text) const;

private:
    std::vector<std::int64_t> tokenize(const std::string& text) const;

    std::shared_ptr<Ort::Session>& mTextModel;
    std::shared_ptr<Ort::Session>& mTokenizer;
    std::shared_ptr<Ort::Env>& mEnvironment;
};

} // namespace kestrelml::semantic
