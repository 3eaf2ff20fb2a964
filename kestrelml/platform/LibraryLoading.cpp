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

const char* const kExtensionOperators = "ortextensions.dll";

std::filesystem::path besideThisLibrary(const char* file) {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&besideThisLibrary), &self);
    std::wstring path(32768, L'\0'); // the longest path there is
    path.resize(GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return std::filesystem::path(path).replace_filename(file);
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

const char* const kExtensionOperators = "libortextensions.so";

std::filesystem::path besideThisLibrary(const char* file) {
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&besideThisLibrary), &self) == 0) return file;
    // In a static build the name is that of the program as it was called, which need not be a path.
    std::error_code unresolved;
    std::filesystem::path path = std::filesystem::canonical(self.dli_fname, unresolved);
    return unresolved ? std::filesystem::path(file) : path.replace_filename(file);
}

#endif

} // namespace kestrelml::platform
