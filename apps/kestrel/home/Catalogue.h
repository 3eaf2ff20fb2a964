#pragma once

#include "apps/kestrel/home/Home.h"

#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A clip that kestrel has put into the store.
struct CatalogueClip {
    std::string id;
    std::string name; ///< File name.
    std::string path; ///< Where the file lay.
    std::string project;
    std::string language;
};

/// The clips that this home has transcribed, so that they can be asked for by file or name.
class Catalogue {
public:
    explicit Catalogue(const Home& home);

    /// Adds the clip, or replaces what was known of it.
    void add(const CatalogueClip& clip) const;
    std::vector<CatalogueClip> clips() const;

private:
    std::filesystem::path mFile;
};

/// Finds the clip that the user means by `text`: an identifier or the beginning of one (six digits at least),
/// the name of a clip, or a file. An empty `project` means any.
/// @throws Failure that says what there is instead, or which clips could be meant.
CatalogueClip findClip(const Home& home, const std::string& text, const std::string& project);

} // namespace kestrel
