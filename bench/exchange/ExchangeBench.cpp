// Export and import of a large store: time and memory, and whether everything arrives. Arguments: numbers of
// segments, by default 25,000, 50,000 and 100,000.

#include "kestrelml/exchange/ExchangeDocuments.h"
#include "kestrelml/exchange/ExchangeReader.h"
#include "kestrelml/exchange/ExchangeWriter.h"
#include "kestrelml/store/KsNNDatabase.h"
#include "tests/support/IndexService.h"

#include <Poco/TemporaryFile.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using namespace kestrelml::detail;

constexpr const char* kProject = "11111111-2222-3333-4444-555555555555";
constexpr int kSegmentsOfClip = 250;
constexpr int kPageSize = 1000;

[[noreturn]] void giveUp(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(1);
}

std::string clipName(int clip) {
    char name[72];
    std::snprintf(name, sizeof name, "%064d", clip);
    return name;
}

/// A segment of twelve words, as speech has them.
std::string document(int clip, int segment) {
    std::ostringstream text;
    text << R"({"_id":"x","_source":{"mediaGuid":")" << clipName(clip) << R"(","segment":)" << segment
         << R"(,"projectGuidList":[")" << kProject << R"("],"language":"en","speakerID":"1","transcript":")";
    for (int word = 0; word < 12; ++word)
        text << (word == 0 ? "" : " ") << "word" << (clip * 7919 + segment * 104729 + word * 31) % 20011;
    for (const char* key : {"wordStartsMS", "wordEndsMS"}) {
        text << (*(key + 4) == 'S' ? R"(",")" : R"(],")") << key << R"(":[)";
        for (int word = 0; word < 12; ++word)
            text << (word == 0 ? "" : ",") << segment * 5000 + word * 400 + (*(key + 4) == 'S' ? 0 : 390);
    }
    text << ']';
    if (segment == 0)
        text << R"(,"model":"m","clipName":"clip )" << clip
             << R"(","audioTracks":"1","clientApp":"bench","schemaVersion":2,"progressComplete":true)";
    text << "}}";
    return text.str();
}

void writeFile(const std::string& path, const std::string& passPhrase, int segments) {
    std::ofstream out(path, std::ios::binary);
    ExchangeWriter writer(out, passPhrase);
    for (int first = 0; first < segments; first += kPageSize) {
        std::string page = R"({"hits":{"hits":[)";
        for (int i = first; i < std::min(first + kPageSize, segments); ++i)
            page += (i == first ? "" : ",") + document(i / kSegmentsOfClip, i % kSegmentsOfClip);
        writer.add(page + "]}}");
    }
    writer.finish();
}

/// One number for all documents of a file, which does not depend on pages.
std::size_t fingerprint(const std::string& path, const std::string& passPhrase, int& documents) {
    std::ifstream in(path, std::ios::binary);
    std::size_t sum = 0;
    documents = 0;
    int pages = 0;
    readExchange(in, passPhrase, [&](const std::string& element) {
        return visitDocuments(element, ++pages, [&](const Poco::JSON::Object& source) {
            std::ostringstream text;
            source.stringify(text);
            sum = sum * 31 + std::hash<std::string>()(text.str());
            ++documents;
            return KsNN_Success;
        });
    });
    return sum;
}

/// Peak of the memory in use since the last `resetPeak`, in MB.
double peakMegabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) / 1024.0;
    }
    return 0.0;
}

void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

template <typename Step>
void measure(const char* name, int segments, KsNNDatabase& store, Step step) {
    resetPeak();
    const double before = peakMegabytes();
    const auto start = std::chrono::steady_clock::now();
    if (step() != KsNN_Success) giveUp(std::string(name) + ": " + store.GetErrorStr());
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%-28s %8d segments %7.2f s %9.0f /s  %6.1f MB above %.1f MB\n", name, segments, seconds,
                segments / seconds, peakMegabytes() - before, before);
    std::fflush(stdout);
}

void runAt(int segments) {
    const kestrel_test::IndexService service;
    service.giveCredentialsToLibrary();
    KsNNDatabase store(service.uri().c_str(), "exchange_bench", nullptr, nullptr, false);
    if (store.CreateIndex(KsNNDatabase::getTranscriptIndex(), false) != KsNN_Success)
        giveUp(store.GetErrorStr());
    const Poco::TemporaryFile made;
    const Poco::TemporaryFile exported;
    const std::string passPhrase = KsNNDatabase::getKey();
    writeFile(made.path(), passPhrase, segments);
    std::printf("file of %.1f MB\n", static_cast<double>(std::filesystem::file_size(made.path())) / 1e6);

    const auto import = [&](const std::string& path) {
        return store.ImportDBContentsFromKST(path, kProject, "Bench", nullptr, false);
    };
    const auto exportAll = [&] {
        int counter = 0;
        return store.ExportDBContentsToKST({}, "", {kProject}, exported.path(), counter, nullptr, false,
                                           false, kPageSize);
    };
    measure("import into an empty store", segments, store, [&] { return import(made.path()); });
    measure("export", segments, store, exportAll);
    int documents = 0;
    const std::size_t first = fingerprint(exported.path(), passPhrase, documents);
    if (documents != segments) giveUp("documents are missing");
    const auto expectSame = [&] {
        if (exportAll() != KsNN_Success || fingerprint(exported.path(), passPhrase, documents) != first)
            giveUp("the documents differ");
    };
    measure("import into an identical one", segments, store, [&] { return import(made.path()); });
    expectSame();
    std::vector<std::string> half;
    for (int clip = 0; clip * kSegmentsOfClip < segments; clip += 2)
        half.push_back(clipName(clip));
    for (std::size_t i = 0; i < half.size(); i += 50) {
        const std::size_t end = std::min(i + 50, half.size());
        store.HardDeleteEntries(
            {half.begin() + static_cast<std::ptrdiff_t>(i), half.begin() + static_cast<std::ptrdiff_t>(end)},
            false);
    }
    measure("import into a half-full one", segments, store, [&] { return import(made.path()); });
    expectSame();
}

} // namespace

int main(int argc, char** argv) {
    std::vector<int> sizes;
    for (int i = 1; i < argc; ++i)
        sizes.push_back(std::atoi(argv[i]));
    if (sizes.empty()) sizes = {25'000, 50'000, 100'000};
    for (const int segments : sizes)
        runAt(segments);
    return 0;
}
