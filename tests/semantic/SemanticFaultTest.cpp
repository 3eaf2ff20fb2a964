// Search by meaning on a real index service that fails at each request in turn, with real models.

#include "tests/store/FaultyStore.h"

#include <cstdlib>

namespace kestrel_test {
namespace {

std::string models() {
    const char* const deps = std::getenv("KESTREL_DEPS_DIR");
    return std::string(deps == nullptr ? ".deps" : deps) + "/models/semantic";
}

TEST_F(Faults, Meaning) {
    // The models of the store behind the proxy are its own.
    const auto withModels = [](auto run) {
        return [run, isLoaded = std::make_shared<bool>(false)](KsNNDatabase& store) {
            if (!*isLoaded) store.LoadSemanticSearchModels(models(), "", KsNNSemanticOnnx, false);
            *isLoaded = true;
            return run(store);
        };
    };
    expectCleanFailures({"WriteSemanticFrames", withModels([](KsNNDatabase& store) {
                             int written = 0;
                             return store.WriteSemanticFrames("own", "p", KsNNSemanticOnnx, written, nullptr,
                                                              false);
                         })});

    std::string vector = "1";
    for (int i = 1; i < 512; ++i)
        vector += ",0";
    for (const std::string clip : {"own", "shared"}) {
        mFrames += R"({"create": {"_index": ")" + KsNNDatabase::getSemanticIndex() + "\"}}\n" +
                   R"({"segment": 0, "fileName": "f", "projectName": "p", "framePositionMS": 0, )" +
                   R"("imageDescription": "d", "mediaGuid": ")" + clip + R"(", "semanticImageVector": [)" +
                   vector + "]}\n";
    }
    restore();
    expectCleanFailures({"SemanticSearch", withModels([](KsNNDatabase& store) {
                             std::vector<KsNNSearchResults> results;
                             return store.SemanticSearch("words", "", 0, results, 5, KsNNSemanticOnnx, false);
                         })});
    expectCleanFailures({"DeleteSemanticFrames",
                         [](KsNNDatabase& store) { return store.DeleteSemanticFrames({"own"}, false); }});
}

} // namespace
} // namespace kestrel_test
