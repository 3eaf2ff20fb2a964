#pragma once

#include "apps/kestrel/script/Script.h"
#include "apps/kestrel/services/Engine.h"

#include <filesystem>
#include <string>
#include <vector>

/// The commands, one source file each. Results go to standard output, everything else to standard error; each
/// gives the exit code, and throws Failure when it can do nothing at all.
namespace kestrel {

struct UpOptions {
    int indexPort = 9281;
    int speechPort = 5000;
};
int up(const UpOptions& options);
int down();

struct StatusOptions {
    bool json = false;
};
int status(const StatusOptions& options);

struct TranscribeOptions {
    std::vector<std::filesystem::path> files;
    std::string project;
    std::string language;
    EngineKind engine = EngineKind::Service;
    bool takeOverLock = false;
    bool json = false;
};
int transcribe(const TranscribeOptions& options);

struct SearchOptions {
    std::string phrase;
    std::string project;
    float threshold = 0.6F;
    int maxResults = 20;
    bool json = false;
};
int search(const SearchOptions& options);

struct ShowOptions {
    std::string clip;
    std::string project; ///< Empty: any.
    bool json = false;
};
int show(const ShowOptions& options);

struct AlignOptions {
    std::filesystem::path script;
    std::string clip;
    std::string project; ///< Empty: any.
    std::string range;   ///< Empty: the whole clip.
    ScriptFormat format = ScriptFormat::Auto;
    std::filesystem::path html; ///< Empty: no page.
    bool json = false;
};
int align(const AlignOptions& options);

} // namespace kestrel
