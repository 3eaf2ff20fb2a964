#include "base/AtomicFile.h"
#include "handlers/Handlers.h"
#include "http/Server.h"
#include "storage/Snapshots.h"
#include "tools/Backup.h"
#include "tools/Check.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel::index;

namespace {

enum ExitCode { ExitOk = 0, ExitFailure = 1, ExitDamage = 2, ExitDataFolder = 3, ExitAddress = 4 };

struct Options {
    std::filesystem::path data;
    std::filesystem::path readyFile;
    Server::Options server{.port = 9281, .certificate = {}, .privateKey = {}, .limits = {}};
};

/// Only the main thread waits for the signals that end the service.
sigset_t blockSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // makes exceeding the file size limit a write error
    return ending;
}

void announce(const Options& options, std::uint16_t port) {
    const std::string uri = fmt::format("https://{}:{}/", options.server.address, port);
    spdlog::info("serving {} at {}", options.data.string(), uri);
    if (options.readyFile.empty()) return;
    const Json ready = {{"uri", uri}, {"pid", getpid()}};
    writeFileAtomically(options.readyFile, ready.dump() + "\n");
}

int serve(Options options) {
    const sigset_t ending = blockSignals();
    const DataFolder folder(options.data);
    Services services(folder.documents());
    services.start(folder);
    const Snapshots snapshots(folder.derived(), services.catalogue);
    const Router router = makeRouter(services);
    Authenticator authenticator(services.users);

    options.server.certificate = folder.certificate();
    options.server.privateKey = folder.privateKey();
    const Server server(options.server, router, authenticator);
    announce(options, server.port());
    int signal = 0;
    sigwait(&ending, &signal);
    spdlog::info("stopping");
    if (!options.readyFile.empty()) std::filesystem::remove(options.readyFile);
    return ExitOk;
}

/// Shows the progress of a command.
void showProgress(std::size_t done, std::size_t all) {
    if (isatty(STDERR_FILENO) == 0) return;
    fmt::print(stderr, "\r{} of {}{}", done, all, done == all ? "\n" : "");
    std::fflush(stderr);
}

int runCheck(const std::filesystem::path& data) {
    const CheckReport report = check(data / "documents.db", data / "derived", &showProgress);
    for (const std::string& line : report.damage)
        fmt::print("{}\n", line);
    fmt::print("{} documents in {} indices: {}\n", report.documents, report.indices,
               report.findings == 0 ? "no damage found" : fmt::format("{} findings", report.findings));
    return report.findings == 0 ? ExitOk : ExitDamage;
}

int runResetPassword(const std::filesystem::path& data, const std::string& name) {
    const DataFolder folder(data, DataFolder::Absent::IsRefused);
    Services services(folder.documents());
    const std::string password = services.users.resetPassword(name);
    if (name == Users::kAdministrator) {
        writeFileAtomically(folder.administrator(),
                            Json{{"user", name}, {"password", password}}.dump() + "\n");
        fmt::print("the new password of {} is in {}\n", name, folder.administrator().string());
    } else {
        fmt::print("the new password of {} is {}\n", name, password);
    }
    return ExitOk;
}

/// Runs a command and turns exceptions into messages and exit codes.
template <typename Command>
int run(Command&& command) try {
    return command();
} catch (const DataFolderError& e) {
    spdlog::critical("{}", e.what());
    return ExitDataFolder;
} catch (const SqliteError& e) {
    spdlog::critical("the documents cannot be read: {}; nothing was changed", e.what());
    return ExitDataFolder;
} catch (const AddressError& e) {
    spdlog::critical("{}", e.what());
    return ExitAddress;
} catch (const std::exception& e) {
    spdlog::critical("{}", e.what());
    return ExitFailure;
}

} // namespace

int main(int argc, char** argv) {
    // Files are accessible to their owner only.
    umask(S_IRWXG | S_IRWXO);
    Options options;
    std::string logLevel = "info";
    CLI::App app("The index service: stores transcripts and searches them. Without a command it serves.",
                 "kestrel-index");
    app.footer("Exit codes: 0 done, 1 failure, 2 damage found, 3 data folder unusable, 4 address in use; "
               "above 100 for "
               "wrong arguments.");
    app.require_subcommand(0, 1);
    app.add_option("--data", options.data, "Folder for all data of the service; created if missing");
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
           "MiB that all requests and answers together may use")
        ->check(CLI::Range(1, 1'000'000))
        ->default_str(std::to_string(options.server.limits.memoryBytes / 1024 / 1024));
    app.add_option("--log-level", logLevel, "trace, debug, info, warning, error or off")
        ->capture_default_str();
    app.set_version_flag("--version", KESTREL_VERSION);

    std::filesystem::path data, other;
    std::string user = Users::kAdministrator;
    CLI::App* const checking = app.add_subcommand(
        "check", "Checks all data in a data folder and prints what is damaged; changes nothing. The "
                 "service may be running");
    checking->add_option("--data", data, "The data folder")->required();
    CLI::App* const backingUp = app.add_subcommand(
        "backup", "Copies the state of a data folder at one moment; the service may be running");
    backingUp->add_option("--data", data, "The data folder")->required();
    backingUp->add_option("--to", other, "New folder for the copy")->required();
    CLI::App* const restoring = app.add_subcommand("restore", "Creates a new data folder from a backup");
    restoring->add_option("--from", other, "The backup")->required();
    restoring->add_option("--data", data, "New data folder")->required();
    CLI::App* const resetting =
        app.add_subcommand("reset-password", "Gives a user a new password; the service must be stopped");
    resetting->add_option("--data", data, "The data folder")->required();
    resetting->add_option("--user", user, "The user")->capture_default_str();
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty() && options.data.empty()) throw CLI::RequiredError("--data");
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }

    spdlog::set_default_logger(spdlog::stderr_logger_mt("kestrel-index"));
    spdlog::set_level(spdlog::level::from_str(logLevel));
    if (app.got_subcommand(checking)) return run([&] { return runCheck(data); });
    if (app.got_subcommand(backingUp))
        return run([&] {
            backUp(data, other, &showProgress);
            fmt::print("{} holds a copy of {}\n", other.string(), data.string());
            return ExitOk;
        });
    if (app.got_subcommand(restoring))
        return run([&] {
            restore(other, data, &showProgress);
            fmt::print("{} can be served\n", data.string());
            return ExitOk;
        });
    if (app.got_subcommand(resetting)) return run([&] { return runResetPassword(data, user); });
    return run([&] { return serve(std::move(options)); });
}
