#pragma once

/// @file
/// From a text to a vector that stands for its meaning, by one of three routes. Internal.

#include "kestrelml/core/KsNNBase.h"
#include "kestrelml/semantic/Embedding.h"

#include <memory>
#include <string>

namespace kestrelml::semantic {

class TextModels;

/// One route. Results are codes with a report in the caller, unless said otherwise.
class TextEmbedder {
public:
    TextEmbedder() = default;
    TextEmbedder(const TextEmbedder&) = delete;
    TextEmbedder& operator=(const TextEmbedder&) = delete;
    virtual ~TextEmbedder() = default;

    /// Makes the models of a folder those that the next texts are embedded with.
    /// @param extensionLibrary Operators that the tokenizer model needs; read by the routes whose models run
    ///                         in Python.
    virtual KsNN_ErrorCode loadModels(const std::string& modelDir, const std::string& extensionLibrary) = 0;

    /// Embeds a text. After a failure `embedding` is as it was.
    virtual KsNN_ErrorCode embed(const std::string& text, Embedding& embedding) = 0;
};

/// @param caller Receives reports; its service address is replaced while the local service is asked.
/// @param models Where the in-process route keeps its models from one embedder to the next.
/// @returns null when there is no such route.
std::unique_ptr<TextEmbedder> createTextEmbedder(KsNNDBSemanticSearchImpl route, KsNNBase& caller,
                                                 TextModels models, bool debug);

} // namespace kestrelml::semantic
