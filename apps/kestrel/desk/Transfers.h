#pragma once

#include "apps/kestrel/home/Home.h"

#include <Poco/JSON/Object.h>

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kestrel::desk {

/// Exchange files on their way out or in. Each lies in a private folder until it is dropped or the desk ends.
class Transfers {
public:
    /// @param onImport Called when an import may have changed transcripts, on the transfer's thread and with
    ///                 this object locked: it must not call back.
    Transfers(const Home& home, std::function<void()> onImport);
    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;
    ~Transfers();

    /// Where a file that comes in is to be put.
    const std::filesystem::path& folder() const { return mFolder; }
    /// @param file In `folder()`; its parent folder is the file's own.
    int addImport(const std::filesystem::path& file);
    /// Begins to write the clips, all of the projects when there are none.
    int addExport(const std::string& name, const std::vector<std::string>& clips,
                  const std::vector<std::string>& projects, const std::string& passPhrase);
    /// Begins to read the file: only says what it would change, or takes it over.
    /// @throws HttpError (404, 409) when there is no such import, or it is at work; so do the others.
    void read(int id, const std::string& passPhrase, const std::string& project, bool isPreview);
    void cancel(int id);
    void drop(int id);

    Poco::JSON::Object::Ptr toJson(int id);
    /// The file of an export that is done.
    std::filesystem::path exportedFile(int id);

private:
    enum class State { Ready, Running, Done, Failed, Cancelled };
    struct Transfer {
        std::filesystem::path file;
        bool isExport = false;
        bool isWriting = false; ///< Into the store.
        State state = State::Ready;
        std::string stage;
        double fraction = 0.0;
        std::string message;
        Poco::JSON::Object::Ptr result;
        int process = 0; ///< 0: none runs.
        bool isCancelled = false;
        std::jthread thread;
    };

    /// How a run of the worker ended.
    struct Outcome {
        State state = State::Failed;
        std::string message;
        Poco::JSON::Object::Ptr result;
    };

    static const char* nameOf(State state);
    Transfer& find(int id);
    int add(const std::filesystem::path& file, bool isExport);
    void begin(int id, Poco::JSON::Object& request);
    void run(int id, const std::string& request);
    Outcome work(int id, const std::string& request);
    /// Takes in one line of what the worker reports.
    void note(int id, const Poco::JSON::Object& said, Outcome& outcome);
    void makeRoom();
    static void end(Transfer& transfer);
    static void remove(Transfer& transfer);

    std::function<void()> mOnImport;
    std::filesystem::path mFolder;
    std::mutex mMutex;
    int mNext = 1;
    std::map<int, Transfer> mTransfers;
};

} // namespace kestrel::desk
