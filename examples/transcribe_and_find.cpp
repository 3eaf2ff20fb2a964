// Transcribes a recording, stores the transcript, and finds a phrase in it, with the services that `kestrel
// up` has started:
//
//   transcribe_and_find SAMPLES INDEX_URI SPEECH_URI MODEL_DIR PHRASE
//
// SAMPLES holds mono 16-bit samples at 16,000 per second. The addresses are those that `kestrel status`
// names. User and password of the index service come from INDEX_USER and INDEX_PASSWORD; the service's first
// administrator is in $KESTREL_HOME/index/administrator.json.

#include "kestrelml/store/KsNNDatabase.h"
#include "kestrelml/stt/KsNNSpeechToTextREST.h"

#include <cstdlib>
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

std::string encrypted(KsNNDatabase& store, const std::string& plain) {
    std::stringstream in(plain);
    std::stringstream out;
    store.IEncryptStream(in, out, false);
    return out.str();
}

// Hands user and password to every store of the process. A host keeps both as the library takes them,
// encrypted, and the pass phrase in another place.
void setCredentials(const std::string& user, const std::string& password, const std::string& passPhrase) {
    // Stores send requests when they are made; this one has no address to send them to.
    KsNNDatabase store("https://[", nullptr, nullptr, nullptr, false);
    // A pass phrase is taken with credentials only, and is needed to encrypt them.
    store.SetCredentials("-", "-", passPhrase, false, false);
    const std::string encryptedUser = encrypted(store, user);
    store.SetCredentials(encryptedUser, encrypted(store, password), passPhrase, false, false);
}

int failed(const KsNNBase& object) {
    std::cerr << object.GetErrorStr();
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    const char* user = std::getenv("INDEX_USER");
    const char* password = std::getenv("INDEX_PASSWORD");
    if (argc != 6 || user == nullptr || password == nullptr) {
        std::cerr << "INDEX_USER=... INDEX_PASSWORD=... transcribe_and_find SAMPLES INDEX_URI SPEECH_URI "
                     "MODEL_DIR PHRASE\n";
        return 2;
    }
    const std::string clip = "example-clip";
    const std::string project = "example-project";

    setCredentials(user, password, "a pass phrase of the host's own");
    KsNNDatabase store(argv[2], nullptr, nullptr, nullptr, false);
    // The first that goes wrong with a wrong address or password: better now than after an hour's work.
    if (const KsNN_ErrorCode code = store.testDefault(false)) {
        std::cerr << (code == KsNN_Error ? "the index service refuses the user or the password\n"
                                         : "no index service answers there\n");
        return failed(store);
    }

    KsNNSpeechToTextREST engine(0, 0, 0, argv[4]);
    engine.SetURI(argv[3]);
    const auto samples = readSamples(argv[1]);
    if (engine.ProcessAudio(samples.data(), 0, samples.size(), clip, project, false)) return failed(engine);

    KsNNDB_STTClipEntry entry;
    entry.clipName = argv[1];
    if (engine.FinalizeTranscript(entry, samples.size(), clip, project, "1", "en", false))
        return failed(engine);

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
