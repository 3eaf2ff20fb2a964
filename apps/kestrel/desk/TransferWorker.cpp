#include "apps/kestrel/desk/TransferWorker.h"

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ExchangeExport.h"
#include "apps/kestrel/clips/ExchangeImport.h"
#include "apps/kestrel/home/Credentials.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/JSON/Parser.h>

#include <istream>
#include <ostream>

namespace kestrel::desk {

namespace {

using Object = Poco::JSON::Object;

void say(std::ostream& out, const Object::Ptr& document) {
    document->stringify(out);
    out << std::endl; // NOLINT(performance-avoid-endl): whoever reads it waits for the line
}

void say(std::ostream& out, const std::string& name, const Poco::Dynamic::Var& value) {
    auto document = jsonObject();
    document->set(name, value);
    say(out, document);
}

Object::Ptr transfer(const Object& request, const Callbacks& callbacks) {
    const Home home = Home::fromEnvironment();
    KsNNDatabase store = openStore(home);
    const std::string file = request.getValue<std::string>("file");
    const std::string passPhrase = request.getValue<std::string>("passPhrase");
    const std::string task = request.getValue<std::string>("do");
    if (task == "export") {
        const ExportPlan plan =
            planExport(store, home, {file, textsOf(request, "clips"), textsOf(request, "projects")});
        applyCredentialsUnder(home, passPhrase);
        auto result = jsonObject();
        result->set("segments", runExport(store, plan, callbacks));
        result->set("clips", plan.clipCount);
        return result;
    }
    callbacks.report("reading", 0.0);
    applyCredentialsUnder(home, passPhrase);
    const ImportPlan plan = planImport(store, {file, request.getValue<std::string>("project")});
    if (task == "import") return toJson(plan, runImport(store, home, plan, callbacks));
    checkImport(store, plan, callbacks);
    return toJson(plan);
}

} // namespace

void runTransferWorker(std::istream& in, std::ostream& out, const std::function<bool()>& isCancelled) {
    Callbacks callbacks;
    callbacks.cancelled = isCancelled;
    int percentBefore = -1;
    std::string stageBefore;
    callbacks.progress = [&](const std::string& stage, double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (stage == stageBefore && percent == percentBefore) return;
        stageBefore = stage;
        percentBefore = percent;
        auto document = jsonObject();
        document->set("stage", stage);
        document->set("fraction", percent / 100.0);
        say(out, document);
    };
    try {
        std::string line;
        std::getline(in, line);
        const auto request = Poco::JSON::Parser().parse(line).extract<Object::Ptr>();
        say(out, "result", transfer(*request, callbacks));
    } catch (const Cancelled& cancelled) {
        say(out, "cancelled", std::string(cancelled.what()));
    } catch (const std::exception& failure) {
        say(out, "error", std::string(failure.what()));
    }
}

} // namespace kestrel::desk
