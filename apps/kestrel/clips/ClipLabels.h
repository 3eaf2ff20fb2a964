#pragma once

#include "apps/kestrel/home/Home.h"

#include <map>
#include <set>
#include <string>

namespace kestrel {

/// What clips are called towards the user: by name, and by more than that where several have one name. What
/// is written can be given to any command that takes a clip.
class ClipLabels {
public:
    /// Knows the clips of this home.
    explicit ClipLabels(const Home& home);
    /// Makes another clip known, which another home may have stored.
    void add(const std::string& clip, const std::string& name);

    /// Path of the clip's file when it was transcribed; empty if another home did that.
    std::string path(const std::string& clip) const;
    /// The name; of several clips with one name the file and the day of its last change, or the identifier.
    std::string label(const std::string& clip, const std::string& name) const;

private:
    std::map<std::string, std::string> mPaths;
    std::map<std::string, std::set<std::string>> mClipsOfName;
};

/// " (2026-03-09)", the day on which the file was last changed; empty when it is not there.
std::string dayOf(const std::string& path);

} // namespace kestrel
