#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kestrel {

struct ExportRequest {
    std::filesystem::path file;
    std::vector<std::string> clips; ///< As the user names them; empty: all of the projects.
    std::vector<std::string> projects;
};

/// What an export writes.
struct ExportPlan {
    std::filesystem::path file;
    std::vector<std::string> clips;    ///< Identifiers; empty: all of the projects.
    std::vector<std::string> projects; ///< Identifiers.
    std::size_t clipCount = 0;
};

/// @throws Failure when there is nothing to export, a transcript is not complete, or a name is unknown.
ExportPlan planExport(KsNNDatabase& store, const Home& home, const ExportRequest& request);

/// Writes the file and returns the number of its segments. The process works under the file's pass phrase
/// (`applyCredentialsUnder`).
/// @throws Failure, Cancelled; then what was there before stays.
int runExport(KsNNDatabase& store, const ExportPlan& plan, const Callbacks& callbacks);

} // namespace kestrel
