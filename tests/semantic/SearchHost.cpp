/// Searches documents by meaning, through the store and a kestrel-index of its own:
///
///     kestrel_semantic_search_host MODEL_DIR < {"documents": [texts], "queries": [texts], "count": number}
///
/// Writes one array for each query: the numbers of the documents found, best first.

#include "kestrelml/store/KsNNDatabase.h"
#include "tests/support/IndexService.h"

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <iostream>
#include <stdexcept>

namespace {

using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr const char* kClip = "clip";
constexpr const char* kProject = "project";

void require(KsNN_ErrorCode code, const KsNNBase& store) {
    if (code != KsNN_Success) throw std::runtime_error(store.GetErrorStr());
}

/// Each document becomes a segment, whose start is its number.
void writeDocuments(KsNNDatabase& store, const Array& documents) {
    require(store.LockEntry(kClip, false), store);
    for (unsigned number = 0; number < documents.size(); ++number) {
        KsNNDBEntrySeg seg;
        seg.segment = static_cast<int>(number);
        seg.mediaGuid = kClip;
        seg.projectGuid = kProject;
        seg.transcript = documents.getElement<std::string>(number);
        seg.wordStartsMS = {seg.segment};
        seg.wordEndsMS = {seg.segment};
        require(store.WriteToDB({}, seg, false), store);
    }
    int written = 0;
    require(store.WriteSemanticFrames(kClip, kProject, KsNNSemanticOnnx, written, nullptr, false), store);
    if (written != static_cast<int>(documents.size())) throw std::runtime_error("frames are missing");
}

void run(const char* modelDir) {
    const auto input = Poco::JSON::Parser().parse(std::cin).extract<Object::Ptr>();
    const kestrel_test::IndexService service;
    service.giveCredentialsToLibrary();
    KsNNDatabase store(service.uri().c_str(), "recall", nullptr, "recall_frames", false);
    require(store.LoadSemanticSearchModels(modelDir, "", KsNNSemanticOnnx, false), store);
    writeDocuments(store, *input->getArray("documents"));
    for (const auto& query : *input->getArray("queries")) {
        std::vector<KsNNSearchResults> results;
        require(store.SemanticSearch(query.convert<std::string>(), "", 0, results,
                                     input->getValue<int>("count"), KsNNSemanticOnnx, false),
                store);
        Array found;
        for (const KsNNSearchResults& result : results)
            found.add(static_cast<int>(result.startMS));
        found.stringify(std::cout);
        std::cout << '\n';
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        run(argv[1]);
        return 0;
    } catch (const std::exception& caught) {
        std::cerr << caught.what() << '\n';
        return 1;
    }
}
