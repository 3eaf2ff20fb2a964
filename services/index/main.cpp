#include "base/AtomicFile.h"
#include "handlers/Handlers.h"
#include "http/Server.h"
#include "security/Certificate.h"
#include "storage/DataFolder.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <unistd.h>

using namespace kestrel::index;

namespace {

enum ExitCode { exitOk = 0, exitFailure = 1, exitDataFolder = 3, exitAddress = 4 };

struct Options {
    std::filesystem::path data;
    std::filesystem::path readyFile;
    Server::Options server{.port = 9281, .certificate = {}, .privateKey = {}, .limits = {}};
};

/// Signals that end the service are waited for by the main thread alone.
sigset_t blockSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a file at its limit is an error of the write, not the end of the service
    return ending;
}

void announce(const Options& options, std::uint16_t port) {
    const std::string uri = fmt::format("https://{}:{}/", options.server.address, port);
    spdlog::info("serving {} at {}", options.data.string(), uri);
    if (options.readyFile.empty()) return;
    const Json ready = {{"uri", uri}, {"pid", getpid()}};
    writeFileAtomically(options.readyFile, ready.dump() + "\n", false);
}

void serve(Options options, const sigset_t& ending) {
    const DataFolder folder(options.data);
    DocumentStore store(folder.documents());
    Scrolls scrolls(store);
    WriteQueue writes(store, scrolls);
    Users users(store, writes);
    users.ensureAdministrator(folder.administrator());
    ensureCertificate(folder.certificate(), folder.privateKey());
    Catalogue catalogue(store, writes);
    catalogue.load();

    Router router;
    const Services services{store, writes, catalogue, scrolls, users};
    addRootHandlers(router, services);
    addIndexHandlers(router, services);
    addDocumentHandlers(router, services);
    addBulkHandlers(router, services);
    addSearchHandlers(router, services);
    addByQueryHandlers(router, services);
    addSecurityHandlers(router, services);
    Authenticator authenticator(users);

    options.server.certificate = folder.certificate();
    options.server.privateKey = folder.privateKey();
    const Server server(options.server, router, authenticator);
    announce(options, server.port());
    int signal = 0;
    sigwait(&ending, &signal);
    spdlog::info("stopping");
    if (!options.readyFile.empty()) std::filesystem::remove(options.readyFile);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    std::string logLevel = "info";
    CLI::App app("The index service: keeps transcripts and finds phrases in them.", "kestrel-index");
    app.add_option("--data", options.data, "Folder that holds everything the service keeps; made when absent")
        ->required();
    app.add_option("--port", options.server.port, "Port to listen on; 0 for any free one")
        ->capture_default_str();
    app.add_option("--listen", options.server.address, "Address to listen on")->capture_default_str();
    app.add_option("--ready-file", options.readyFile, "File that is written once the service answers");
    app.add_option("--max-clients", options.server.limits.clients, "Clients served at once")
        ->check(CLI::Range(1, 10'000))
        ->capture_default_str();
    app.add_option_function<std::size_t>(
           "--max-memory",
           [&options](std::size_t mebibytes) { options.server.limits.memoryBytes = mebibytes * 1024 * 1024; },
           "MiB that requests and answers may take together")
        ->check(CLI::Range(1, 1'000'000))
        ->default_str(std::to_string(options.server.limits.memoryBytes / 1024 / 1024));
    app.add_option("--log-level", logLevel, "trace, debug, info, warning, error or off")
        ->capture_default_str();
    app.set_version_flag("--version", KESTREL_VERSION);
    CLI11_PARSE(app, argc, argv);

    spdlog::set_default_logger(spdlog::stderr_logger_mt("kestrel-index"));
    spdlog::set_level(spdlog::level::from_str(logLevel));
    const sigset_t ending = blockSignals();
    int code = exitOk;
    try {
        serve(std::move(options), ending);
    } catch (const DataFolderError& e) {
        spdlog::critical("{}", e.what());
        code = exitDataFolder;
    } catch (const SqliteError& e) {
        spdlog::critical("the documents cannot be read: {}; nothing was changed", e.what());
        code = exitDataFolder;
    } catch (const AddressError& e) {
        spdlog::critical("{}", e.what());
        code = exitAddress;
    } catch (const std::exception& e) {
        spdlog::critical("{}", e.what());
        code = exitFailure;
    }
    return code;
}
