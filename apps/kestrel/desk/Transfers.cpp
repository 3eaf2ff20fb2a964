#include "apps/kestrel/desk/Transfers.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Http.h"
#include "apps/kestrel/services/Process.h"

#include <Poco/JSON/Parser.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>
#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <cstdlib>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

constexpr std::size_t kMostKept = 4;

/// Folders of desks that ended without removing them.
void removeLeftovers(const fs::path& folder) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const pid_t owner = std::atoi(entry.path().filename().c_str());
        if (owner == ::getpid() || !findProcess(owner)) fs::remove_all(entry.path(), error);
    }
}

/// Where the file lies for now means nothing to whoever chose it.
std::string withoutFolder(std::string message, const fs::path& file) {
    const std::string path = file.string();
    for (std::size_t at = 0; (at = message.find(path, at)) != std::string::npos;)
        message.replace(at, path.size(), file.filename().string());
    return message;
}

} // namespace

Transfers::Transfers(const Home& home, std::function<void()> onImport) : mOnImport(std::move(onImport)) {
    const fs::path all = home.root() / "desk" / "transfers";
    fs::create_directories(all);
    removeLeftovers(all);
    mFolder = all / std::to_string(::getpid());
    fs::create_directory(mFolder);
    fs::permissions(mFolder, fs::perms::owner_all);
}

Transfers::~Transfers() {
    {
        const std::scoped_lock lock(mMutex);
        for (auto& [id, transfer] : mTransfers)
            end(transfer);
    }
    for (auto& [id, transfer] : mTransfers) {
        if (transfer.thread.joinable()) transfer.thread.join();
    }
    std::error_code ignored;
    fs::remove_all(mFolder, ignored);
}

const char* Transfers::nameOf(State state) {
    switch (state) {
    case State::Ready:
        return "ready";
    case State::Running:
        return "running";
    case State::Done:
        return "done";
    case State::Failed:
        return "failed";
    case State::Cancelled:
        return "cancelled";
    }
    return "";
}

Transfers::Transfer& Transfers::find(int id) {
    const auto found = mTransfers.find(id);
    if (found == mTransfers.end()) throw HttpError(404, fmt::format("there is no transfer {}", id));
    return found->second;
}

void Transfers::end(Transfer& transfer) {
    transfer.isCancelled = true;
    if (transfer.process != 0) Poco::Process::requestTermination(transfer.process);
}

/// Of one that does not run: its thread does not wait for the lock any more.
void Transfers::remove(Transfer& transfer) {
    if (transfer.thread.joinable()) transfer.thread.join();
    std::error_code ignored;
    fs::remove_all(transfer.file.parent_path(), ignored);
}

/// Files of pages that were closed would pile up.
void Transfers::makeRoom() {
    for (auto transfer = mTransfers.begin();
         mTransfers.size() >= kMostKept && transfer != mTransfers.end();) {
        if (transfer->second.state == State::Running) {
            ++transfer;
            continue;
        }
        remove(transfer->second);
        transfer = mTransfers.erase(transfer);
    }
    if (mTransfers.size() >= kMostKept)
        throw HttpError(409, "several exchange files are being written or read: wait for one of them");
}

int Transfers::add(const fs::path& file, bool isExport) {
    try {
        makeRoom();
    } catch (const HttpError&) {
        std::error_code ignored;
        fs::remove_all(file.parent_path(), ignored);
        throw;
    }
    Transfer& added = mTransfers[mNext];
    added.file = file;
    added.isExport = isExport;
    return mNext++;
}

int Transfers::addImport(const fs::path& file) {
    const std::scoped_lock lock(mMutex);
    return add(file, false);
}

int Transfers::addExport(const std::string& name, const std::vector<std::string>& clips,
                         const std::vector<std::string>& projects, const std::string& passPhrase) {
    const std::scoped_lock lock(mMutex);
    const fs::path own = mFolder / Poco::UUIDGenerator::defaultGenerator().createRandom().toString();
    fs::create_directory(own);
    const int id = add(own / name, true);
    auto request = jsonObject();
    request->set("do", "export");
    request->set("passPhrase", passPhrase);
    request->set("clips", jsonArray(clips));
    request->set("projects", jsonArray(projects));
    begin(id, *request);
    return id;
}

void Transfers::read(int id, const std::string& passPhrase, const std::string& project, bool isPreview) {
    const std::scoped_lock lock(mMutex);
    Transfer& transfer = find(id);
    if (transfer.isExport) throw HttpError(409, "this file is on its way out");
    if (transfer.state == State::Running) throw HttpError(409, "the file is being read");
    transfer.isWriting = !isPreview;
    auto request = jsonObject();
    request->set("do", isPreview ? "preview" : "import");
    request->set("passPhrase", passPhrase);
    request->set("project", project);
    begin(id, *request);
}

void Transfers::begin(int id, Poco::JSON::Object& request) {
    Transfer& transfer = find(id);
    request.set("file", transfer.file.string());
    std::ostringstream line;
    request.stringify(line);
    transfer.state = State::Running;
    transfer.stage.clear();
    transfer.fraction = 0.0;
    transfer.message.clear();
    transfer.result = nullptr;
    transfer.isCancelled = false;
    transfer.thread = std::jthread([this, id, text = line.str()] { run(id, text); });
}

void Transfers::run(int id, const std::string& request) {
    Outcome outcome;
    try {
        outcome = work(id, request);
    } catch (const std::exception& failure) {
        outcome.message = failure.what();
    }
    const std::scoped_lock lock(mMutex);
    Transfer& transfer = find(id);
    if (transfer.isWriting) mOnImport();
    transfer.process = 0;
    // Who cancels an import that has begun to write learns what it leaves.
    const bool isCancelled = transfer.isCancelled && !outcome.result && outcome.message.empty();
    transfer.state = isCancelled ? State::Cancelled : outcome.state;
    transfer.message = withoutFolder(outcome.message, transfer.file);
    transfer.result = outcome.result;
}

void Transfers::note(int id, const Poco::JSON::Object& said, Outcome& outcome) {
    if (said.has("result")) {
        outcome.state = State::Done;
        outcome.result = said.getObject("result");
    } else if (said.has("stage")) {
        const std::scoped_lock lock(mMutex);
        find(id).stage = said.getValue<std::string>("stage");
        find(id).fraction = said.getValue<double>("fraction");
    } else {
        outcome.message = said.optValue<std::string>("error", "");
    }
}

/// Runs the worker and reads what it reports.
Transfers::Outcome Transfers::work(int id, const std::string& request) {
    Poco::Pipe in;
    Poco::Pipe out;
    const auto start = [&] {
        const std::scoped_lock lock(mMutex);
        const Poco::ProcessHandle started = Poco::Process::launch(
            (executableFolder() / "kestrel").string(), {"desk", "--transfer-worker"}, &in, &out, nullptr);
        find(id).process = started.id();
        if (find(id).isCancelled) Poco::Process::requestTermination(started.id());
        return started;
    };
    const Poco::ProcessHandle worker = start();
    {
        Poco::PipeOutputStream asked(in);
        asked << request << '\n';
    }
    Outcome outcome;
    Poco::PipeInputStream told(out);
    for (std::string line; std::getline(told, line);) {
        try {
            note(id, *Poco::JSON::Parser().parse(line).extract<Poco::JSON::Object::Ptr>(), outcome);
        } catch (const Poco::Exception& failure) { // the worker is waited for all the same
            outcome.message = "the process that handles the file answered: " + failure.displayText();
        }
    }
    bool isCancelled = false;
    {
        const std::scoped_lock lock(mMutex);
        find(id).process = 0;
        isCancelled = find(id).isCancelled;
    }
    if (worker.wait() != 0 && outcome.state == State::Failed && outcome.message.empty() && !isCancelled)
        outcome.message = "the process that handles the file has ended";
    return outcome;
}

void Transfers::cancel(int id) {
    const std::scoped_lock lock(mMutex);
    Transfer& transfer = find(id);
    if (transfer.state == State::Running) end(transfer);
}

void Transfers::drop(int id) {
    const std::scoped_lock lock(mMutex);
    Transfer& transfer = find(id);
    if (transfer.state == State::Running) throw HttpError(409, "the file is in use: cancel it first");
    remove(transfer);
    mTransfers.erase(id);
}

Poco::JSON::Object::Ptr Transfers::toJson(int id) {
    const std::scoped_lock lock(mMutex);
    const Transfer& transfer = find(id);
    auto document = jsonObject();
    document->set("transfer", id);
    document->set("name", transfer.file.filename().string());
    document->set("state", nameOf(transfer.state));
    if (transfer.state == State::Running) {
        document->set("stage", transfer.stage);
        document->set("fraction", transfer.fraction);
    }
    if (!transfer.message.empty()) document->set("message", transfer.message);
    if (transfer.result) document->set("result", transfer.result);
    return document;
}

fs::path Transfers::exportedFile(int id) {
    const std::scoped_lock lock(mMutex);
    const Transfer& transfer = find(id);
    if (!transfer.isExport || transfer.state != State::Done)
        throw HttpError(404, "there is no exported file of this number");
    return transfer.file;
}

} // namespace kestrel::desk
