#include "kestrelml/stt/DebugDump.h"

#include "kestrelml/core/Debug.h"
#include "kestrelml/platform/Paths.h"
#include "kestrelml/platform/PrivateFolder.h"

#include <Poco/Environment.h>
#include <Poco/Process.h>

#include <atomic>
#include <fstream>

namespace kestrelml::stt {
namespace {

namespace fs = std::filesystem;

fs::path dumpFolder() {
    const std::string chosen = Poco::Environment::get("KESTREL_DEBUG_DIR", "");
    if (chosen.empty()) return platform::privateTemporaryFolder("kestrelml-debug");
    fs::path folder = platform::pathFromUtf8(chosen);
    fs::create_directories(folder);
    return folder;
}

void write(const std::string& name, std::string_view bytes) {
    const fs::path path = dumpFolder() / platform::pathFromUtf8(name);
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw fs::filesystem_error("not written", path, std::error_code());
}

} // namespace

void dumpFile(const std::string& name, std::string_view bytes) noexcept {
    try {
        write(name, bytes);
    } catch (const std::exception& e) {
        detail::debugLine(true, "KsNNSTT cannot write debug file ", name, ": ", e.what());
    }
}

void dumpAudio(const std::int16_t* samples, std::size_t numSamples) noexcept {
    static std::atomic<unsigned> number{0};
    const std::string_view bytes(reinterpret_cast<const char*>(samples), numSamples * sizeof(std::int16_t));
    dumpFile("KsNNAudio-" + std::to_string(Poco::Process::id()) + "-" + std::to_string(++number) + ".raw",
             bytes);
}

} // namespace kestrelml::stt
