#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/commands/Commands.h"
#include "apps/kestrel/services/Services.h"
#include "apps/kestrel/services/Store.h"
#include "apps/kestrel/terminal/Output.h"

#include <fmt/format.h>

namespace kestrel {

namespace {

struct Answer {
    bool good = false;
    std::string problem;
};

Answer ask(Service service, const Home& home) {
    try {
        if (service == Service::Index) {
            openStore(home);
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

} // namespace

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

} // namespace kestrel
