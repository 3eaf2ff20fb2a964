#include "apps/kestrel/desk/Desk.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/commands/Command.h"
#include "apps/kestrel/desk/TransferWorker.h"
#include "apps/kestrel/services/Startup.h"
#include "apps/kestrel/terminal/Interrupt.h"
#include "apps/kestrel/terminal/Output.h"
#include "apps/kestrel/terminal/TerminalCallbacks.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <iostream>
#include <malloc.h>
#include <memory>
#include <thread>

namespace kestrel {

namespace {

constexpr int kDeskPort = 9283;

struct DeskOptions {
    int port = kDeskPort;
    bool noOpen = false;
    bool isTransferWorker = false;
};

/// Opens the address by way of a file that only its owner can read: everyone on the machine sees the
/// arguments of a process.
void openBrowser(const Home& home, const std::string& address) {
    const std::filesystem::path opener = "/usr/bin/xdg-open";
    const std::filesystem::path page = home.runFolder() / "desk.html";
    std::error_code error;
    if (!std::filesystem::exists(opener, error)) return;
    replaceFile(page,
                fmt::format("<!doctype html><title>kestrel</title><meta http-equiv=\"refresh\" "
                            "content=\"0;url={0}\"><a href=\"{0}\">kestrel</a>\n",
                            address),
                0600);
    startDetached(opener, {page.string()}, home.logFolder() / "desk.log");
}

int runDesk(const DeskOptions& options) {
    catchInterrupts();
    if (options.isTransferWorker) {
        desk::runTransferWorker(std::cin, std::cout, wasInterrupted);
        return ExitFine;
    }
    const Home home = Home::fromEnvironment();
    bringUp(home, {{Service::Index, kIndexPort}, {Service::Speech, kSpeechPort}}, terminalCallbacks());
    const desk::Desk server(home, static_cast<std::uint16_t>(options.port), desk::pageFolder());
    printResult(server.address() + "\n");
    tell("The address is good for one browser, once. Ctrl-C ends the desk; the services keep running.");
    if (!options.noOpen) openBrowser(home, server.address());
    constexpr std::chrono::milliseconds kPause{100};
    constexpr int kPausesBetweenTrims = 100;
    for (int pauses = 1; !wasInterrupted(); ++pauses) {
        std::this_thread::sleep_for(kPause);
        // What a long clip takes for a moment stays with the thread that read it, and there are many.
        if (pauses % kPausesBetweenTrims == 0) ::malloc_trim(0);
    }
    return ExitFine;
}

Run setUp(CLI::App& app) {
    auto options = std::make_shared<DeskOptions>();
    app.add_option("--port", options->port, "Port of the pages; 0: any free one")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_flag("--no-open", options->noOpen, "Only show the address, open no browser");
    app.add_flag("--transfer-worker", options->isTransferWorker, "Handle one exchange file for a desk")
        ->group(""); // for the desk itself
    app.footer(
        "Starts the services when they do not run. Everything stays on this machine: the pages are served\n"
        "to one browser on it and load nothing from elsewhere.\n\n"
        "Examples:\n  kestrel desk\n  kestrel desk --port 0 --no-open");
    return [options] { return runDesk(*options); };
}

const CommandRegistration kRegistration({CommandGroup::Transcripts, "desk",
                                         "Search, play and transcribe in the browser", setUp});

} // namespace

} // namespace kestrel
