// Transcribes a recording, stores the transcript, and finds a phrase in it.
//
//   transcribe_and_find SAMPLES INDEX_URI SPEECH_URI MODEL_DIR PHRASE
//
// SAMPLES holds mono 16-bit samples at 16,000 per second. Both services are running.

#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/stt/KsNNSpeechToTextREST.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

namespace {

std::vector<std::int16_t> readSamples(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::int16_t> samples(bytes.size() / sizeof(std::int16_t));
    bytes.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(std::int16_t));
    return samples;
}

int failed(const KsNNBase& object) {
    std::cerr << object.GetErrorStr();
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 6) return 2;
    const std::string clip = "example-clip";
    const std::string project = "example-project";

    KsNNSpeechToTextREST engine(0, 0, 0, argv[4]);
    engine.SetURI(argv[3]);
    const auto samples = readSamples(argv[1]);
    if (engine.ProcessAudio(samples.data(), 0, samples.size(), clip, project, false)) return failed(engine);

    KsNNDB_STTClipEntry entry;
    entry.clipName = argv[1];
    if (engine.FinalizeTranscript(entry, samples.size(), clip, project, "1", "en", false))
        return failed(engine);

    KsNNDatabase store(argv[2], nullptr, nullptr, nullptr, false);
    if (store.LockEntry(clip, false)) return failed(store);
    for (const auto& segment : entry.segments) {
        if (store.WriteToDB(entry, segment, false)) return failed(store);
    }
    if (store.SetProgressComplete(clip, false, 2, project)) return failed(store);
    if (store.UnlockEntry(clip, false)) return failed(store);

    std::vector<KsNNSearchResults> hits;
    if (store.Search(argv[5], project, 0.6F, hits, 100, false)) return failed(store);
    for (const auto& hit : hits) {
        std::cout << hit.startMS / 1000 << " s, score " << hit.score << ": " << hit.text << '\n';
    }
}
