#include "kestrelml/stt/DebugDump.h"

#include "kestrelml/platform/Paths.h"

#include <Poco/Environment.h>
#include <Poco/Process.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace kestrelml::stt {
namespace {

void dump(const std::string& fileName, std::string_view bytes) {
    const std::string folder = Poco::Environment::get("KESTREL_DEBUG_DIR", "");
    if (folder.empty()) return;
    const std::filesystem::path path = platform::pathFromUtf8(folder) / platform::pathFromUtf8(fileName);
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) std::cout << "KsNNSTT cannot write debug file " << path << std::endl;
}

} // namespace

void dumpAudio(const std::int16_t* samples, std::size_t numSamples) {
    static std::atomic<unsigned> number{0};
    dump("KsNNAudio-" + std::to_string(Poco::Process::id()) + "-" + std::to_string(++number) + ".raw",
         {reinterpret_cast<const char*>(samples), numSamples * sizeof(std::int16_t)});
}

void dumpText(const std::string& fileName, std::string_view text) {
    dump(fileName, text);
}

} // namespace kestrelml::stt
