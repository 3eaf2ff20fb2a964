#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <map>
#include <string>

/// Options that several commands share, so that they read alike everywhere.
namespace kestrel {

/// Refuses a name that is empty or blank.
inline std::string requireName(const std::string& name) {
    return name.find_first_not_of(" \t\r\n") == std::string::npos ? "a name must not be empty" : "";
}

inline CLI::Option* addProjectOption(CLI::App& app, std::string& project) {
    return app.add_option("--project", project, "Name of the project")->check(requireName);
}

/// For commands that name a clip: clips of the same name may lie in several projects.
inline CLI::Option* addAnyProjectOption(CLI::App& app, std::string& project) {
    return app.add_option("--project", project, "Name of the project, when a clip name is used in several")
        ->check(requireName);
}

/// Takes one of the names, and tells all of them to whoever gives another.
template <typename Value>
CLI::Validator oneOf(const std::map<std::string, Value>& values) {
    std::string names;
    for (const auto& [name, value] : values)
        names += (names.empty() ? "" : ",") + name;
    const auto translate = [values, names](std::string& text) -> std::string {
        const auto found = values.find(text);
        if (found == values.end()) return "\"" + text + "\" is none of {" + names + "}";
        text = std::to_string(static_cast<int>(found->second));
        return "";
    };
    return {translate, "{" + names + "}"};
}

inline constexpr const char* kClipHelp =
    "Name of the clip, its file, or its identifier (six digits or more will do)";

inline CLI::Option* addYesFlag(CLI::App& app, bool& yes) {
    return app.add_flag("--yes,-y", yes, "Do not ask");
}

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
