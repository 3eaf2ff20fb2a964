#pragma once

#include "apps/kestrel/home/Home.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestrel {

/// A recognition model: a folder with a Whisper model in CTranslate2's format.
struct Recogniser {
    std::string name;
    std::filesystem::path folder;
    bool isAdded = false;    ///< Added to this home; otherwise it came with the models.
    bool isSelected = false; ///< Used unless a run names another.
    std::string problem;     ///< Why it cannot be used; empty when it can.
    std::uintmax_t bytes = 0;
};

/// The recognition models that a home knows: those in the folder of the models, and those added by path.
class Recognisers {
public:
    explicit Recognisers(const Home& home);

    /// By name; each one is checked.
    std::vector<Recogniser> all() const;
    /// @throws Failure that names the models that there are.
    Recogniser find(const std::string& name) const;
    /// The model of a run: the named one, else the selected one.
    /// @throws Failure when there is no such model or it cannot be used.
    Recogniser forRun(const std::string& name) const;

    /// @throws Failure when the folder holds no usable model or the name is taken.
    Recogniser add(const std::filesystem::path& folder, const std::string& name) const;
    /// Forgets an added model; its folder stays.
    void remove(const std::string& name) const;
    void select(const std::string& name) const;

private:
    struct State {
        std::string selected;
        std::map<std::string, std::string> added; ///< Name and folder.
    };
    State read() const;
    template <typename Change>
    void change(Change change) const;

    std::filesystem::path mFile;
};

/// What a folder lacks to be a recognition model; empty when it is one.
std::string recogniserProblem(const std::filesystem::path& folder);

/// Names and terms that help the recogniser, one a line in `terms.txt` of the home and in
/// `terms/<project>.txt`, and in a file for one run; "#" begins a comment.
/// @throws Failure when the file for the run cannot be read.
std::vector<std::string> recogniserTerms(const Home& home, const std::string& project,
                                         const std::filesystem::path& file);

/// Tells a recogniser which model and terms the next run wants, through a file that its process knows from
/// the environment.
class RecogniserSettings {
public:
    /// The file of the home's speech service, or of an interpreter in this process.
    static std::filesystem::path fileOfService(const Home& home);
    static std::filesystem::path fileOfThisProcess(const Home& home);
    /// Makes the file known to this process and those that it starts.
    static void announce(const std::filesystem::path& file);

    static void write(const std::filesystem::path& file, const std::filesystem::path& model,
                      const std::vector<std::string>& terms);
};

} // namespace kestrel
