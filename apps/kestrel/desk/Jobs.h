#pragma once

#include "apps/kestrel/clips/ClipTranscriber.h"
#include "apps/kestrel/desk/Stores.h"

#include <Poco/JSON/Object.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace kestrel::desk {

/// Transcribes files one after another and tells how far it is.
class Jobs {
public:
    explicit Jobs(Stores& stores);
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;
    ~Jobs();

    int add(const std::filesystem::path& file, const std::string& project, const std::string& language);
    /// A job that waits ends at once, one that runs as soon as the engine hears of it.
    /// @throws HttpError (404) when there is no such job; so do the others.
    void cancel(int id);
    /// Lets a job that failed or was cancelled run again.
    void retry(int id);
    /// Takes a job that has ended from the list.
    void forget(int id);

    /// All jobs, oldest first.
    Poco::JSON::Object::Ptr toJson();
    /// Waits until something has changed since `seen`, which is brought up to date; false when nothing has.
    bool waitForChange(std::uint64_t& seen, std::chrono::milliseconds longest);

private:
    enum class State { Waiting, Running, Done, Failed, Cancelled };
    struct Job {
        std::filesystem::path file;
        std::string project;
        std::string language;
        State state = State::Waiting;
        std::string stage;
        double fraction = 0.0;
        std::chrono::steady_clock::time_point begun;
        std::string message; ///< What came of it, in plain words.
        std::string clip;
        bool isCancelled = false;
    };

    static const char* nameOf(State state);
    static Poco::JSON::Object::Ptr toJson(int id, const Job& job);
    Job& find(int id);
    void run(const std::stop_token& stopping);
    FileOutcome transcribe(int id, const TranscriptionSettings& settings, const std::filesystem::path& file,
                           const std::stop_token& stopping);
    void settle(int id, const FileOutcome& outcome);
    void changed();

    Stores& mStores;
    std::mutex mMutex;
    std::condition_variable_any mChange;
    std::uint64_t mVersion = 1;
    int mNext = 1;
    std::map<int, Job> mJobs;
    std::jthread mThread; ///< Last, so that it ends before what it uses.
};

} // namespace kestrel::desk
