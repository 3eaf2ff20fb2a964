// A host that loads the library late and keeps its symbols to itself, as Java, C# and plug-in loaders do.

#include <dlfcn.h>
#include <filesystem>
#include <iostream>

int main(int count, char** arguments) {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    void* library = dlopen((folder / "libkestrel_stt_scenario.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entry = library ? dlsym(library, "runScenario") : nullptr;
    if (!entry) {
        std::cerr << dlerror() << '\n';
        return 2;
    }
    return reinterpret_cast<int (*)(int, char**)>(entry)(count, arguments);
}
