#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/ClipList.h"
#include "apps/kestrel/clips/Membership.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/desk/Parts.h"
#include "apps/kestrel/services/Engine.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/JSON/Array.h>

#include <set>

namespace kestrel::desk {

namespace {

template <typename Texts>
Poco::JSON::Array::Ptr arrayOf(const Texts& texts) {
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const std::string& text : texts)
        list->add(text);
    return list;
}

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
    auto document = jsonObject();
    document->set("projects", list);
    send(exchange, document);
}

Poco::JSON::Object::Ptr toJson(const ListedClip& clip) {
    const KsNNClipSummary& stored = clip.stored;
    std::vector<std::string> projects;
    for (const KsNNProject& project : stored.projects)
        projects.push_back(project.projectName);
    auto object = jsonObject();
    object->set("clip", stored.mediaGuid);
    object->set("clipName", stored.clipName);
    object->set("path", clip.path);
    object->set("projects", arrayOf(projects));
    object->set("complete", stored.isComplete);
    object->set("endMS", stored.endMS);
    object->set("languages", arrayOf(stored.languages));
    object->set("speakers", arrayOf(clip.speakers));
    return object;
}

void clips(Exchange& exchange, Parts& parts) {
    ClipFilter filter;
    filter.project = exchange.parameter("project");
    const std::vector<ListedClip> listed =
        parts.stores.with([&](KsNNDatabase& store) { return listClips(store, parts.stores.home(), filter); });
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const ListedClip& clip : listed)
        list->add(toJson(clip));
    auto document = jsonObject();
    document->set("clips", list);
    send(exchange, document);
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
    auto document = jsonObject();
    document->set("languages", list);
    send(exchange, document);
}

void join(Exchange& exchange, Parts& parts) {
    const std::string name = requiredText(*exchange.body(), "project");
    auto document = jsonObject();
    parts.stores.with([&](KsNNDatabase& store) {
        const Clip clip = parts.transcripts.find(store, exchange.path.at(2));
        document->set("joined", joinProject(store, parts.stores.home(), clip, findProject(store, name)));
    });
    parts.transcripts.forget();
    send(exchange, document);
}

void leave(Exchange& exchange, Parts& parts) {
    const std::string project = requiredText(*exchange.body(), "project");
    parts.stores.with([&](KsNNDatabase& store) {
        Clip clip = parts.transcripts.find(store, exchange.path.at(2));
        clip.project = requireProject(store, project);
        leaveProject(store, parts.stores.home(), clip);
    });
    parts.transcripts.forget();
    sendNothing(exchange);
}

void deleteClip(Exchange& exchange, Parts& parts) {
    parts.stores.with([&](KsNNDatabase& store) {
        deleteEverywhere(store, parts.stores.home(), parts.transcripts.find(store, exchange.path.at(2)));
    });
    parts.transcripts.forget();
    sendNothing(exchange);
}

} // namespace

void addLibraryRoutes(Routes& routes, Parts& parts) {
    const auto add = [&](const char* method, const char* pattern, void (*answer)(Exchange&, Parts&)) {
        routes.add(method, pattern, [&parts, answer](Exchange& exchange) { answer(exchange, parts); });
    };
    add("GET", "/api/projects", projects);
    add("GET", "/api/languages", languages);
    add("GET", "/api/clips", clips);
    add("POST", "/api/clips/*/join", join);
    add("POST", "/api/clips/*/leave", leave);
    add("DELETE", "/api/clips/*", deleteClip);
}

} // namespace kestrel::desk
