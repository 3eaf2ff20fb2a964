// A host that loads the library late and keeps its symbols to itself, as Java, C# and plug-in loaders do.

#include <dlfcn.h>
#include <iostream>

int main(int count, char** arguments) {
    void* library = dlopen("libstt_engine_scenario.so", RTLD_NOW | RTLD_LOCAL);
    void* entry = library ? dlsym(library, "runScenario") : nullptr;
    if (!entry) {
        std::cerr << dlerror() << '\n';
        return 2;
    }
    return reinterpret_cast<int (*)(int, char**)>(entry)(count, arguments);
}
