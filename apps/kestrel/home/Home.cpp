#include "apps/kestrel/home/Home.h"

#include "apps/kestrel/base/Failure.h"

#include <fmt/format.h>

#include <cstdlib>
#include <string>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

} // namespace

Home Home::fromEnvironment() {
    if (const std::string home = environment("KESTREL_HOME"); !home.empty()) return Home(fs::absolute(home));
    if (const std::string data = environment("XDG_DATA_HOME"); fs::path(data).is_absolute())
        return Home(fs::path(data) / "kestrel");
    if (const std::string user = environment("HOME"); !user.empty())
        return Home(fs::path(user) / ".local/share/kestrel");
    throw Failure("there is no home folder: set KESTREL_HOME");
}

Home::Home(fs::path root) : mRoot(std::move(root)) {
}

void Home::create() const {
    for (const fs::path& folder : {mRoot, indexData(), logFolder(), runFolder()}) {
        std::error_code error;
        if (fs::is_directory(folder, error)) continue;
        fs::create_directories(folder, error);
        if (error)
            throw Failure(fmt::format("cannot create the folder {}: {}", folder.string(), error.message()));
        fs::permissions(folder, fs::perms::owner_all, error);
    }
}

fs::path executableFolder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

fs::path modelFolder() {
    const std::string named = environment("KESTREL_MODEL_DIR");
    const fs::path folder = named.empty() ? executableFolder() / "models" : fs::path(named);
    std::error_code error;
    if (!fs::exists(folder / "Languages.json", error))
        throw Failure(
            fmt::format("no speech models in {}: run scripts/setup, or set KESTREL_MODEL_DIR to the "
                        "folder that holds Languages.json",
                        folder.string()));
    return fs::canonical(folder);
}

} // namespace kestrel
