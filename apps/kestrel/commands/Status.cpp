#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/commands/Options.h"
#include "apps/kestrel/services/Engine.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

#include <memory>

namespace kestrel {

namespace {

struct StatusOptions {
    bool json = false;
};

struct Answer {
    bool good = false;
    std::string problem;
};

Answer ask(Service service, const Home& home) {
    try {
        if (service == Service::Index) {
            openStoreOfAnyVersion(home);
        } else {
            const auto engine = makeEngine(EngineKind::Service, home);
            float progress = 0.0F;
            check(engine->GetProgress(progress, false), *engine, "does not answer");
        }
        return {true, ""};
    } catch (const Failure& failure) {
        return {false, failure.what()};
    }
}

int status(const StatusOptions& options) {
    const Home home = Home::fromEnvironment();
    auto document = jsonObject();
    document->set("home", home.root().string());
    const auto running = Services(home).running();
    bool allGood = true;
    for (const Service service : kAllServices) {
        const auto found = running.find(service);
        const bool runs = found != running.end();
        const Answer answer = runs ? ask(service, home) : Answer{};
        allGood = allGood && answer.good;
        auto entry = jsonObject();
        entry->set("running", runs);
        entry->set("answers", answer.good);
        if (runs) {
            entry->set("uri", found->second.uri);
            entry->set("pid", found->second.process.pid);
        }
        if (!answer.problem.empty()) entry->set("problem", answer.problem);
        document->set(nameOf(service), entry);
        if (options.json) continue;
        if (!runs)
            printResult(fmt::format("{:6}  not running\n", nameOf(service)));
        else
            printResult(fmt::format("{:6}  {}  running (process {}){}\n", nameOf(service), found->second.uri,
                                    found->second.process.pid,
                                    answer.good ? "" : ", but: " + answer.problem));
    }
    if (options.json)
        printResult(document);
    else if (running.size() < kAllServices.size())
        tell("start what is missing with `kestrel up`");
    return allGood ? ExitFine : ExitFailed;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<StatusOptions>();
    addJsonFlag(app, options->json);
    app.footer("The exit code is 0 when both answer, else 1.\n\nExample:\n  kestrel status --json");
    return [options] { return status(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Services, "status",
                                         "Show whether the services run and answer", setUp});

} // namespace

} // namespace kestrel
