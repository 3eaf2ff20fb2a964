#pragma once

#include "apps/kestrel/home/Home.h"

#include <string>
#include <vector>

namespace kestrel {

/// A clip that kestrel has put into the store.
struct CatalogueClip {
    std::string id;
    std::string name; ///< File name.
    std::string path; ///< Of the file, when it was transcribed.
    std::string project;
    std::string language;
};

/// The clips that this home has transcribed, so that they can be asked for by file or name.
class Catalogue {
public:
    explicit Catalogue(const Home& home);

    /// Adds the clip, or replaces what was known of it.
    void add(const CatalogueClip& clip) const;
    /// Adds those that are not known in their project; the others keep what is known of them.
    void addMissing(const std::vector<CatalogueClip>& clips) const;
    /// Forgets the clip in a project; an empty project means in all.
    void remove(const std::string& clip, const std::string& project) const;
    std::vector<CatalogueClip> clips() const;

    /// The clips that the user may mean by `text`: the name of a clip, else an identifier or the beginning of
    /// one (six digits at least), else a file: one that is there is read for its identifier, one that has
    /// gone is known by its path. An empty `project` means any.
    std::vector<CatalogueClip> find(const std::string& text, const std::string& project) const;

private:
    template <typename Change>
    void change(Change change) const;

    std::filesystem::path mFile;
};

/// Characters that the beginning of an identifier needs to stand for it.
inline constexpr std::size_t kShortestPrefix = 6;

} // namespace kestrel
