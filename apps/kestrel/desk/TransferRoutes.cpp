#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Parts.h"

#include <Poco/URI.h>
#include <fmt/format.h>

namespace kestrel::desk {

namespace {

/// What a project is called may not do as the name of a file.
std::string fileNameOf(const std::string& title) {
    std::string name = title.substr(0, title.find_last_not_of(" .") + 1);
    for (char& character : name) {
        if (character == '/' || static_cast<unsigned char>(character) < ' ') character = '_';
    }
    constexpr std::size_t kMostBytes = 120;
    if (name.empty() || name.size() > kMostBytes) name = "transcripts";
    return name + ".kst";
}

void sendNumber(Exchange& exchange, int id) {
    auto document = jsonObject();
    document->set("transfer", id);
    send(exchange, document);
}

void addExport(Exchange& exchange, Parts& parts) {
    const auto body = exchange.body();
    const std::vector<std::string> projects = textsOf(*body, "projects");
    if (projects.empty()) throw HttpError(400, "name a project");
    sendNumber(exchange, parts.transfers.addExport(
                             fileNameOf(body->optValue<std::string>("title", projects.front())),
                             textsOf(*body, "clips"), projects, requiredText(*body, "passPhrase")));
}

void addImport(Exchange& exchange, Parts& parts) {
    sendNumber(exchange, parts.transfers.addImport(
                             receiveFile(exchange, parts.transfers.folder(), exchange.parameter("name"))));
}

void read(Exchange& exchange, Parts& parts, bool isPreview) {
    const auto body = exchange.body();
    parts.transfers.read(exchange.identifier(), requiredText(*body, "passPhrase"),
                         body->optValue<std::string>("project", ""), isPreview);
    // Segments are about to be replaced: an undo must not give them the speakers of the old ones.
    if (!isPreview) parts.lastChange.forgetAll();
    sendNothing(exchange);
}

void file(Exchange& exchange, Parts& parts) {
    const std::filesystem::path exported = parts.transfers.exportedFile(exchange.identifier());
    std::string name;
    Poco::URI::encode(exported.filename().string(), "!?#/'()*;,\"", name);
    exchange.response.set("Content-Disposition", "attachment; filename*=UTF-8''" + name);
    sendFile(exchange, exported, "application/octet-stream");
}

} // namespace

void addTransferRoutes(Routes& routes, Parts& parts) {
    routes.add("POST", "/api/transfers", [&](Exchange& exchange) { addImport(exchange, parts); });
    routes.add("POST", "/api/transfers/export", [&](Exchange& exchange) { addExport(exchange, parts); });
    routes.add("GET", "/api/transfers/*",
               [&](Exchange& exchange) { send(exchange, parts.transfers.toJson(exchange.identifier())); });
    routes.add("GET", "/api/transfers/*/file", [&](Exchange& exchange) { file(exchange, parts); });
    routes.add("POST", "/api/transfers/*/preview", [&](Exchange& exchange) { read(exchange, parts, true); });
    routes.add("POST", "/api/transfers/*/import", [&](Exchange& exchange) { read(exchange, parts, false); });
    routes.add("POST", "/api/transfers/*/cancel", [&](Exchange& exchange) {
        parts.transfers.cancel(exchange.identifier());
        sendNothing(exchange);
    });
    routes.add("DELETE", "/api/transfers/*", [&](Exchange& exchange) {
        parts.transfers.drop(exchange.identifier());
        sendNothing(exchange);
    });
}

} // namespace kestrel::desk
