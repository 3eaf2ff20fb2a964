#include "kestrelml/platform/LibraryLoading.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace kestrelml::platform {

#ifdef _WIN32

bool loadRecogniserRuntime(const std::filesystem::path& pythonModules) {
    const std::filesystem::path folder = pythonModules / "ctranslate2";
    SetDllDirectoryW(folder.c_str());
    return LoadLibraryW((folder / "ctranslate2.dll").c_str()) != nullptr;
}

// Nothing to do: a library finds its symbols in the library that it names.
void exposeInterpreterSymbols(int /*majorVersion*/, int /*minorVersion*/) {
}

#else

bool loadRecogniserRuntime(const std::filesystem::path& pythonModules) {
    std::error_code failure; // a missing folder leaves the range empty
    for (const auto& entry :
         std::filesystem::directory_iterator(pythonModules / "ctranslate2.libs", failure)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("libctranslate2-") && name.find(".so") != std::string::npos)
            return dlopen(entry.path().c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr;
    }
    return false;
}

void exposeInterpreterSymbols(int majorVersion, int minorVersion) {
    const std::string name =
        "libpython" + std::to_string(majorVersion) + "." + std::to_string(minorVersion) + ".so.1.0";
    dlopen(name.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL);
}

#endif

} // namespace kestrelml::platform
