#pragma once

#include <filesystem>

namespace kestrel {

/// The folder in which kestrel keeps its state: `$KESTREL_HOME`, by default `kestrel` in the user's data
/// folder.
class Home {
public:
    /// @throws Failure when no folder can be named.
    static Home fromEnvironment();
    explicit Home(std::filesystem::path root);

    /// Makes the folders that are missing, readable by their owner alone.
    /// @throws Failure naming the folder.
    void create() const;

    const std::filesystem::path& root() const { return mRoot; }
    std::filesystem::path indexData() const { return mRoot / "index"; }
    std::filesystem::path logFolder() const { return mRoot / "log"; }
    std::filesystem::path runFolder() const { return mRoot / "run"; }
    std::filesystem::path servicesFile() const { return mRoot / "services.json"; }
    std::filesystem::path credentialsFile() const { return mRoot / "credentials.json"; }
    std::filesystem::path keyFile() const { return mRoot / "credentials.key"; }
    std::filesystem::path catalogueFile() const { return mRoot / "catalogue.json"; }

private:
    std::filesystem::path mRoot;
};

/// Folder of the running executable, which also holds the services and the models.
std::filesystem::path executableFolder();
/// Folder of the speech models: `$KESTREL_MODEL_DIR`, else `models` beside the executable.
/// @throws Failure when there is none.
std::filesystem::path modelFolder();

} // namespace kestrel
