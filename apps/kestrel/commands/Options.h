#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <string>

/// Options that several commands share, so that they read alike everywhere.
namespace kestrel {

inline CLI::Option* addProjectOption(CLI::App& app, std::string& project) {
    return app.add_option("--project", project, "Name of the project");
}

/// For commands that name a clip: clips of the same name may lie in several projects.
inline CLI::Option* addAnyProjectOption(CLI::App& app, std::string& project) {
    return app.add_option("--project", project, "Name of the project, when a clip name is used in several");
}

inline constexpr const char* kClipHelp =
    "Name of the clip, its file, or its identifier (six digits or more will do)";

inline CLI::Option* addJsonFlag(CLI::App& app, bool& json) {
    return app.add_flag("--json", json, "Write one JSON document");
}

/// For commands that read or write exchange files.
inline CLI::Option* addPassPhraseOption(CLI::App& app, std::filesystem::path& file) {
    return app.add_option("--pass-phrase-file", file,
                          "File whose first line is the pass phrase, - for standard input (default: "
                          "$KESTREL_PASS_PHRASE, else it is asked for)");
}

} // namespace kestrel
