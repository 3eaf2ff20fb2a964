/// Embeds texts by one route:
///
///     kestrel_semantic_host ROUTE MODEL_DIR EXTENSION_LIBRARY < texts.json
///
/// Reads an array of texts; writes {"load": code, "error": report} and then, for each text, its vector or the
/// code and report of the failure.

#include "kestrelml/semantic/TextModels.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <iostream>
#include <limits>

using namespace kestrelml::semantic;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace {

void print(const KsNNBase& caller, const char* name, KsNN_ErrorCode code) {
    Object answer;
    answer.set(name, static_cast<int>(code));
    answer.set("error", caller.GetErrorStr());
    answer.stringify(std::cout);
    std::cout << '\n';
}

void printVector(const Embedding& vector) {
    std::cout.precision(std::numeric_limits<float>::max_digits10);
    const char* separator = "[";
    for (const float number : vector) {
        std::cout << separator << number;
        separator = ",";
    }
    std::cout << "]\n";
}

int run(const char* route, const char* modelDir, const char* extensionLibrary) {
    const auto texts = Poco::JSON::Parser().parse(std::cin).extract<Array::Ptr>();
    KsNNBase caller("");
    std::shared_ptr<Ort::Session> textModel;
    std::shared_ptr<Ort::Session> tokenizer;
    std::shared_ptr<Ort::Env> environment;
    TextModels models(textModel, tokenizer, environment);
    const auto embedder =
        createTextEmbedder(static_cast<KsNNDBSemanticSearchImpl>(std::stoi(route)), caller, models, false);
    print(caller, "load", embedder->loadModels(modelDir, extensionLibrary));
    for (const auto& text : *texts) {
        Embedding vector{};
        const KsNN_ErrorCode code = embedder->embed(text.convert<std::string>(), vector);
        if (code == KsNN_Success)
            printVector(vector);
        else
            print(caller, "embed", code);
    }
    models.release();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    try {
        return run(argv[1], argv[2], argv[3]);
    } catch (const std::exception& caught) {
        std::cerr << caught.what() << '\n';
        return 1;
    }
}
