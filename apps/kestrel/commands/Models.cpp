#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/home/Recognisers.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct ModelsOptions {
    std::string name;
    std::filesystem::path folder;
    bool json = false;
};

Poco::JSON::Object::Ptr toJson(const Recogniser& model) {
    auto object = jsonObject();
    object->set("name", model.name);
    object->set("folder", model.folder.string());
    object->set("selected", model.isSelected);
    object->set("added", model.isAdded);
    object->set("bytes", model.bytes);
    if (!model.problem.empty()) object->set("problem", model.problem);
    return object;
}

int list(const ModelsOptions& options) {
    bool allGood = true;
    Poco::JSON::Array::Ptr models = new Poco::JSON::Array;
    for (const Recogniser& model : Recognisers(Home::fromEnvironment()).all()) {
        allGood = allGood && model.problem.empty();
        models->add(toJson(model));
        if (options.json) continue;
        printResult(fmt::format("{} {:24} {:6} MB  {}{}\n", model.isSelected ? '*' : ' ', model.name,
                                model.bytes / 1'000'000, model.folder.string(),
                                model.problem.empty() ? "" : ", cannot be used: " + model.problem));
    }
    if (options.json) {
        auto document = jsonObject();
        document->set("models", models);
        printResult(document);
    }
    return allGood ? ExitFine : ExitFailed;
}

int add(const ModelsOptions& options) {
    const Home home = Home::fromEnvironment();
    home.create();
    const Recogniser model = Recognisers(home).add(options.folder, options.name);
    tell(fmt::format("{} added; use it with --model {}, or always after `kestrel models use {}`", model.name,
                     model.name, model.name));
    return ExitFine;
}

int use(const ModelsOptions& options) {
    const Home home = Home::fromEnvironment();
    home.create();
    Recognisers(home).select(options.name);
    tell(fmt::format("{} transcribes from now on", options.name));
    return ExitFine;
}

int remove(const ModelsOptions& options) {
    Recognisers(Home::fromEnvironment()).remove(options.name);
    tell(fmt::format("{} forgotten; its folder is still there", options.name));
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<ModelsOptions>();
    auto action = std::make_shared<int (*)(const ModelsOptions&)>(&list);
    addJsonFlag(app, options->json);
    const auto addCommand = [&](const char* name, const char* help, int (*chosen)(const ModelsOptions&)) {
        CLI::App* const sub = app.add_subcommand(name, help);
        sub->callback([action, chosen] { *action = chosen; });
        return sub;
    };
    CLI::App* const adding = addCommand("add", "Make a folder with a CTranslate2 Whisper model known", &add);
    adding->add_option("FOLDER", options->folder, "Holds model.bin, config.json and tokenizer.json")
        ->required();
    adding->add_option("--name", options->name, "Its name here (default: the folder's)")->check(requireName);
    addCommand("use", "Choose the model that transcribes unless --model names another", &use)
        ->add_option("NAME", options->name, "Name in the list")
        ->required();
    addCommand("remove", "Forget an added model", &remove)
        ->add_option("NAME", options->name, "Name in the list")
        ->required();
    app.footer(
        "Without a command: lists and checks the models; the one in use has a star. The exit code is 1\n"
        "when one of them cannot be used.\n\n"
        "Names and terms help every model: one a line in terms.txt of the home folder, and in\n"
        "terms/PROJECT.txt for one project.\n\n"
        "Examples:\n  kestrel models add ~/models/whisper-small\n  kestrel models use whisper-small\n"
        "  kestrel models --json");
    return [options, action] { return (*action)(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Services, "models",
                                         "List, check, add and choose recognition models", setUp});

} // namespace

} // namespace kestrel
