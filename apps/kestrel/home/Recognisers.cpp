#include "apps/kestrel/home/Recognisers.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kestrel {

namespace {

constexpr std::array kFiles{"model.bin", "config.json", "tokenizer.json"};
constexpr const char* kUsualName = "whisper-base";
constexpr const char* kSettingsVariable = "KESTREL_RECOGNISER_SETTINGS";

/// Every CTranslate2 model begins with a version and the name of its kind.
bool isWhisper(const fs::path& file) {
    std::ifstream bytes(file, std::ios::binary);
    std::array<char, 32> head{};
    bytes.read(head.data(), head.size());
    return bytes && std::string_view(head.data() + 6, 12) == std::string_view("WhisperSpec\0", 12);
}

std::vector<fs::path> foldersIn(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_directory() && fs::exists(entry.path() / "model.bin")) found.push_back(entry.path());
    }
    return found;
}

void addTerms(std::istream& lines, std::vector<std::string>& terms) {
    for (std::string line; std::getline(lines, line);) {
        line = line.substr(0, line.find('#'));
        const auto begin = line.find_first_not_of(" \t\r");
        if (begin == std::string::npos) continue;
        terms.push_back(line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin));
    }
}

} // namespace

std::string recogniserProblem(const fs::path& folder) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) return "there is no such folder";
    std::vector<std::string> missing;
    for (const char* const name : kFiles) {
        if (!fs::is_regular_file(folder / name, error)) missing.emplace_back(name);
    }
    if (!missing.empty()) return fmt::format("it lacks {}", fmt::join(missing, ", "));
    if (!isWhisper(folder / "model.bin")) return "model.bin is not a Whisper model in CTranslate2's format";
    for (const char* const name : {"config.json", "tokenizer.json"}) {
        try {
            readJson(folder / name);
        } catch (const Failure& failure) {
            return failure.what();
        }
    }
    return "";
}

Recognisers::Recognisers(const Home& home) : mFile(home.root() / "recognisers.json") {
}

Recognisers::State Recognisers::read() const {
    State state;
    if (!fs::exists(mFile)) return state;
    const auto document = readJson(mFile);
    state.selected = document->optValue<std::string>("selected", "");
    if (const auto added = document->getObject("added")) {
        for (const auto& [name, folder] : *added)
            state.added.emplace(name, folder.toString());
    }
    return state;
}

template <typename Change>
void Recognisers::change(Change change) const {
    const FileLock lock = FileLock::take(mFile.string() + ".lock");
    State state = read();
    change(state);
    auto added = jsonObject();
    for (const auto& [name, folder] : state.added)
        added->set(name, folder);
    auto document = jsonObject();
    document->set("selected", state.selected);
    document->set("added", added);
    replaceFile(mFile, toText(document), 0600);
}

std::vector<Recogniser> Recognisers::all() const {
    const State state = read();
    std::vector<Recogniser> models;
    const auto append = [&](const std::string& name, const fs::path& folder, bool isAdded) {
        std::error_code error;
        const std::uintmax_t bytes = fs::file_size(folder / "model.bin", error);
        models.push_back({name, folder, isAdded, false, recogniserProblem(folder), error ? 0 : bytes});
    };
    for (const fs::path& folder : foldersIn(modelFolder()))
        append(folder.filename().string(), folder, false);
    for (const auto& [name, folder] : state.added)
        append(name, folder, true);
    std::sort(models.begin(), models.end(),
              [](const Recogniser& a, const Recogniser& b) { return a.name < b.name; });
    const auto named = [&](const std::string& name) {
        return std::find_if(models.begin(), models.end(),
                            [&](const Recogniser& model) { return model.name == name; });
    };
    auto selected = named(state.selected.empty() ? kUsualName : state.selected);
    if (selected == models.end() && state.selected.empty()) selected = models.begin();
    if (selected != models.end()) selected->isSelected = true;
    return models;
}

Recogniser Recognisers::find(const std::string& name) const {
    const std::vector<Recogniser> models = all();
    std::vector<std::string> names;
    for (const Recogniser& model : models) {
        if (model.name == name) return model;
        names.push_back(model.name);
    }
    throw Failure(fmt::format("there is no recognition model \"{}\"; there are: {}; add one with `kestrel "
                              "models add FOLDER`",
                              name, fmt::join(names, ", ")));
}

Recogniser Recognisers::forRun(const std::string& name) const {
    Recogniser model;
    if (!name.empty()) {
        model = find(name);
    } else {
        const std::vector<Recogniser> models = all();
        const auto selected =
            std::find_if(models.begin(), models.end(), [](const Recogniser& one) { return one.isSelected; });
        if (selected == models.end())
            throw Failure("the selected recognition model is gone: choose another with `kestrel models use`");
        model = *selected;
    }
    if (!model.problem.empty())
        throw Failure(fmt::format("the recognition model {} in {} cannot be used: {}", model.name,
                                  model.folder.string(), model.problem));
    return model;
}

Recogniser Recognisers::add(const fs::path& folder, const std::string& name) const {
    std::error_code error;
    const fs::path whole = fs::canonical(folder, error);
    const std::string problem = recogniserProblem(error ? folder : whole);
    if (!problem.empty())
        throw Failure(fmt::format("{} holds no recognition model: {}", folder.string(), problem));
    const std::string chosen = name.empty() ? whole.filename().string() : name;
    for (const Recogniser& model : all()) {
        if (model.name == chosen && model.folder != whole)
            throw Failure(fmt::format("the name {} is taken by {}: choose another with --name", chosen,
                                      model.folder.string()));
    }
    change([&](State& state) { state.added[chosen] = whole.string(); });
    return find(chosen);
}

void Recognisers::remove(const std::string& name) const {
    if (!find(name).isAdded)
        throw Failure(fmt::format("{} came with the models and was not added here", name));
    change([&](State& state) {
        state.added.erase(name);
        if (state.selected == name) state.selected.clear();
    });
}

void Recognisers::select(const std::string& name) const {
    forRun(name);
    change([&](State& state) { state.selected = name; });
}

std::vector<std::string> recogniserTerms(const Home& home, const std::string& project, const fs::path& file) {
    std::vector<std::string> terms;
    for (const fs::path& usual : {home.root() / "terms.txt", home.root() / "terms" / (project + ".txt")}) {
        std::ifstream lines(usual);
        if (lines) addTerms(lines, terms);
    }
    if (!file.empty()) {
        std::istringstream lines(readFile(file));
        addTerms(lines, terms);
    }
    return terms;
}

fs::path RecogniserSettings::fileOfService(const Home& home) {
    return home.runFolder() / "recogniser.json";
}

fs::path RecogniserSettings::fileOfThisProcess(const Home& home) {
    return home.runFolder() / fmt::format("recogniser-{}.json", ::getpid());
}

void RecogniserSettings::announce(const fs::path& file) {
    ::setenv(kSettingsVariable, file.c_str(), 1);
}

void RecogniserSettings::write(const fs::path& file, const fs::path& model,
                               const std::vector<std::string>& terms) {
    auto document = jsonObject();
    document->set("model", model.string());
    document->set("terms", fmt::format("{}", fmt::join(terms, ", ")));
    replaceFile(file, toText(document), 0600);
}

} // namespace kestrel
