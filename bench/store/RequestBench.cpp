// One request of the store, with a connection of its own, beside curl doing the same without process start:
// one curl, as many requests, each on a new connection with a full handshake.

#include "kestrelml/store/KsNNDatabase.h"
#include "tests/support/IndexService.h"

#include <Poco/Process.h>
#include <Poco/TemporaryFile.h>
#include <benchmark/benchmark.h>

#include <fstream>

namespace {

constexpr int kRequests = 100;

kestrel_test::IndexService& service() {
    static kestrel_test::IndexService instance;
    return instance;
}

void library(benchmark::State& state) {
    service().giveCredentialsToLibrary();
    KsNNDatabase store(service().uri().c_str(), nullptr, nullptr, nullptr, false);
    for (auto _ : state) {
        for (int i = 0; i < kRequests; ++i) {
            if (store.testDefault(false) != KsNN_Success) state.SkipWithError(store.GetErrorStr().c_str());
        }
    }
    state.SetItemsProcessed(state.iterations() * kRequests);
}

void curl(benchmark::State& state) {
    const Poco::TemporaryFile config;
    {
        std::ofstream file(config.path());
        file << "insecure\nsilent\nno-sessionid\nheader = \"Connection: close\"\n"
             << "user = \"" << service().user() << ':' << service().password() << "\"\n";
        for (int i = 0; i < kRequests; ++i) {
            file << "url = \"" << service().uri() << "\"\noutput = /dev/null\n";
        }
    }
    for (auto _ : state) {
        if (Poco::Process::launch("curl", {"--config", config.path()}).wait() != 0)
            state.SkipWithError("curl failed");
    }
    state.SetItemsProcessed(state.iterations() * kRequests);
}

BENCHMARK(library)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(curl)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
