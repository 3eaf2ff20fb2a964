#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Parts.h"

#include <Poco/JSON/Array.h>
#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <fstream>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

/// Streams a file that was dropped on the page into a folder of its own, under its own name.
fs::path receive(Exchange& exchange, const fs::path& folder, const std::string& name) {
    const fs::path only = fs::path(name).filename(); // what a browser sends has no folder
    if (only.empty() || only == "." || only == ".." || only != fs::path(name))
        throw HttpError(400, fmt::format("\"{}\" is no file name", name));
    if (!exchange.request.hasContentLength() || exchange.request.getContentLength64() == 0)
        throw HttpError(400, fmt::format("{} is empty", name));
    const fs::path target = folder / Poco::UUIDGenerator::defaultGenerator().createRandom().toString() / only;
    fs::create_directories(target.parent_path());
    std::ofstream out(target, std::ios::binary);
    out << exchange.request.stream().rdbuf();
    out.close();
    std::error_code error;
    const bool isWhole = out && fs::file_size(target, error) ==
                                    static_cast<std::uintmax_t>(exchange.request.getContentLength64());
    if (!isWhole) {
        fs::remove_all(target.parent_path(), error);
        throw HttpError(507,
                        fmt::format("{} could not be kept: is the disk of {} full?", name, folder.string()));
    }
    return target;
}

void addUpload(Exchange& exchange, Parts& parts) {
    const std::string project = exchange.parameter("project");
    const std::string language = exchange.parameter("language"); // empty: found from the speech
    if (project.find_first_not_of(" \t\r\n") == std::string::npos) throw HttpError(400, "name a project");
    const fs::path file =
        receive(exchange, parts.stores.home().root() / "desk" / "media", exchange.parameter("name"));
    auto document = jsonObject();
    document->set("job", parts.jobs.add(file, project, language));
    send(exchange, document);
}

int jobOf(const Exchange& exchange) {
    try {
        return std::stoi(exchange.path.at(2));
    } catch (const std::exception&) {
        throw HttpError(404, "there is no such job");
    }
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
    const auto add = [&](const char* method, const char* pattern, void (Jobs::*action)(int)) {
        routes.add(method, pattern, [&parts, action](Exchange& exchange) {
            (parts.jobs.*action)(jobOf(exchange));
            parts.transcripts.forget();
            sendNothing(exchange);
        });
    };
    add("POST", "/api/jobs/*/cancel", &Jobs::cancel);
    add("POST", "/api/jobs/*/retry", &Jobs::retry);
    add("DELETE", "/api/jobs/*", &Jobs::forget);
}

} // namespace kestrel::desk
