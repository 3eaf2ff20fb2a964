#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/Projects.h"
#include "apps/kestrel/desk/Parts.h"

#include <Poco/JSON/Array.h>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

void sendJob(Exchange& exchange, int job) {
    auto document = jsonObject();
    document->set("job", job);
    send(exchange, document);
}

void addUpload(Exchange& exchange, Parts& parts) {
    const std::string project = exchange.parameter("project");
    const std::string language = exchange.parameter("language"); // empty: found from the speech
    if (project.find_first_not_of(" \t\r\n") == std::string::npos) throw HttpError(400, "name a project");
    const fs::path file =
        receiveFile(exchange, parts.stores.home().root() / "desk" / "media", exchange.parameter("name"));
    sendJob(exchange, parts.jobs.add(file, project, language, false));
}

/// Replaces a transcript, in the language that is asked for now.
void transcribeAgain(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::string& id = exchange.path.at(2);
    const Clip clip =
        parts.stores.with([&](KsNNDatabase& store) { return parts.transcripts.find(store, id); });
    sendJob(exchange, parts.jobs.add(parts.media.require(id), clip.project.projectName,
                                     body->optValue<std::string>("language", ""), true));
}

void indexByMeaning(Exchange& exchange, Parts& parts) {
    const KsNNProject project =
        parts.stores.with([&](KsNNDatabase& store) { return requireProject(store, exchange.path.at(2)); });
    sendJob(exchange, parts.jobs.addIndexing(project.projectName));
}

/// Server-sent events: the list of jobs whenever it changes.
void events(Exchange& exchange, Parts& parts) {
    exchange.response.setContentType("text/event-stream");
    exchange.response.setChunkedTransferEncoding(true);
    std::ostream& out = exchange.response.send();
    constexpr std::chrono::seconds kAlive{1}; // how soon a page that was closed is noticed
    constexpr std::chrono::milliseconds kPause{150};
    std::uint64_t seen = 0;
    while (out && !parts.isStopping) {
        if (parts.jobs.waitForChange(seen, kAlive)) {
            out << "data: ";
            parts.jobs.toJson()->stringify(out);
            out << "\n\n" << std::flush;
            std::this_thread::sleep_for(kPause);
        } else {
            out << ": nothing new\n\n" << std::flush;
        }
    }
}

} // namespace

void addJobRoutes(Routes& routes, Parts& parts) {
    routes.add("GET", "/api/jobs", [&](Exchange& exchange) { send(exchange, parts.jobs.toJson()); });
    routes.add("GET", "/api/events", [&](Exchange& exchange) { events(exchange, parts); });
    routes.add("POST", "/api/uploads", [&](Exchange& exchange) { addUpload(exchange, parts); });
    routes.add("DELETE", "/api/jobs", [&](Exchange& exchange) {
        parts.jobs.forgetEnded();
        sendNothing(exchange);
    });
    routes.add("POST", "/api/projects/*/meaning",
               [&](Exchange& exchange) { indexByMeaning(exchange, parts); });
    routes.add("POST", "/api/clips/*/again", [&](Exchange& exchange) { transcribeAgain(exchange, parts); });
    const auto add = [&](const char* method, const char* pattern, void (Jobs::*action)(int)) {
        routes.add(method, pattern, [&parts, action](Exchange& exchange) {
            (parts.jobs.*action)(exchange.identifier());
            parts.forget();
            sendNothing(exchange);
        });
    };
    add("POST", "/api/jobs/*/cancel", &Jobs::cancel);
    add("POST", "/api/jobs/*/retry", &Jobs::retry);
    add("DELETE", "/api/jobs/*", &Jobs::forget);
}

} // namespace kestrel::desk
