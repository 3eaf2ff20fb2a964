#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/desk/Parts.h"
#include "apps/kestrel/services/Engine.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/JSON/Array.h>

namespace kestrel::desk {

namespace {

void projects(Exchange& exchange, Parts& parts) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    parts.stores.with([&](KsNNDatabase& store) {
        for (const KsNNProject& project : storedProjects(store)) {
            auto object = jsonObject();
            object->set("projectId", project.projectGuid);
            object->set("project", project.projectName);
            list->add(object);
        }
    });
    send(exchange, "projects", list);
}

void clips(Exchange& exchange, Parts& parts) {
    const Listing::Text text = parts.listing.of(exchange.parameter("project"));
    exchange.response.setContentType("application/json");
    exchange.response.sendBuffer(text->data(), text->size());
}

void languages(Exchange& exchange, Parts& parts) {
    const auto engine = makeEngine(EngineKind::Service, parts.stores.home());
    std::vector<KsNNLanguage> known;
    check(engine->SetModelDir(modelFolder().string(), false), *engine,
          "the speech engine cannot use its models");
    check(engine->GetSupportedLanguages(known, false), *engine, "the speech engine names no languages");
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const KsNNLanguage& language : known) {
        auto object = jsonObject();
        object->set("language", language.code);
        object->set("name", language.anglicizedName);
        list->add(object);
    }
    send(exchange, "languages", list);
}

void join(Exchange& exchange, Parts& parts) {
    const std::string name = requiredText(*exchange.body(), "project");
    auto document = jsonObject();
    parts.stores.with([&](KsNNDatabase& store) {
        const Clip clip = parts.transcripts.find(store, exchange.path.at(2));
        document->set("joined", joinProject(store, parts.stores.home(), clip, findProject(store, name)));
    });
    parts.forget();
    send(exchange, document);
}

void leave(Exchange& exchange, Parts& parts) {
    const std::string project = requiredText(*exchange.body(), "project");
    parts.stores.with([&](KsNNDatabase& store) {
        Clip clip = parts.transcripts.find(store, exchange.path.at(2));
        clip.project = requireProject(store, project);
        leaveProject(store, parts.stores.home(), clip);
    });
    parts.forget();
    sendNothing(exchange);
}

void deleteClip(Exchange& exchange, Parts& parts) {
    parts.stores.with([&](KsNNDatabase& store) {
        deleteEverywhere(store, parts.stores.home(), parts.transcripts.find(store, exchange.path.at(2)));
    });
    parts.forget();
    sendNothing(exchange);
}

void removeProject(Exchange& exchange, Parts& parts) {
    auto document = jsonObject();
    parts.stores.with([&](KsNNDatabase& store) {
        const KsNNProject project = requireProject(store, exchange.path.at(2));
        document->set("removed", deleteProject(store, parts.stores.home(), project, {}));
    });
    parts.forget();
    send(exchange, document);
}

/// Whether clips can be found by meaning, and if not, why.
void meaning(Exchange& exchange, Parts& parts) {
    const std::string problem = parts.stores.with([&](KsNNDatabase& store) { return whyNoMeaning(store); });
    auto document = jsonObject();
    document->set("ready", problem.empty());
    document->set("problem", problem);
    send(exchange, document);
}

} // namespace

void addLibraryRoutes(Routes& routes, Parts& parts) {
    const auto add = [&](const char* method, const char* pattern, void (*answer)(Exchange&, Parts&)) {
        routes.add(method, pattern, [&parts, answer](Exchange& exchange) { answer(exchange, parts); });
    };
    add("GET", "/api/projects", projects);
    add("DELETE", "/api/projects/*", removeProject);
    add("GET", "/api/languages", languages);
    add("GET", "/api/meaning", meaning);
    add("GET", "/api/clips", clips);
    add("POST", "/api/clips/*/join", join);
    add("POST", "/api/clips/*/leave", leave);
    add("DELETE", "/api/clips/*", deleteClip);
}

} // namespace kestrel::desk
