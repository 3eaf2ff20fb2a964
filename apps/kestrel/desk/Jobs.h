#pragma once

#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/clips/ClipTranscriber.h"
#include "apps/kestrel/desk/Stores.h"

#include <Poco/JSON/Object.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace kestrel::desk {

/// Transcribes files and makes projects searchable by meaning, one after another, and tells how far it is.
/// The list outlives the desk: what waited goes on at the next start, what ran can be tried again.
class Jobs {
public:
    /// @param onEnd Called when a job has ended, from the thread that runs them.
    Jobs(Stores& stores, std::function<void()> onEnd);
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;
    ~Jobs();

    /// @param language Empty: found from the speech.
    /// @param again    Replace what the store has of the clip.
    int add(const std::filesystem::path& file, const std::string& project, const std::string& language,
            bool again);
    /// Makes what is said in a project searchable by meaning.
    int addIndexing(const std::string& project);
    /// A job that waits ends at once, one that runs as soon as the engine hears of it.
    /// @throws HttpError (404) when there is no such job; so do the others.
    void cancel(int id);
    /// Lets a job that failed or was cancelled run again.
    void retry(int id);
    /// Takes a job that has ended from the list.
    void forget(int id);
    /// Takes all that have ended from the list.
    void forgetEnded();

    /// All jobs, oldest first.
    Poco::JSON::Object::Ptr toJson();
    /// Waits until something has changed since `seen`, which is brought up to date; false when nothing has.
    bool waitForChange(std::uint64_t& seen, std::chrono::milliseconds longest);

private:
    enum class State { Waiting, Running, Done, Failed, Cancelled };
    struct Job {
        std::filesystem::path file; ///< Empty: the project is to be made searchable by meaning.
        std::string project;
        std::string language;
        bool again = false;
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
    /// What came of a job.
    struct Ending {
        State state = State::Failed;
        std::string message;
        std::string clip;
    };
    static bool hasEnded(const Job& job);
    Job& find(int id);
    int add(Job job);
    void run(const std::stop_token& stopping);
    Ending perform(const Job& job, const Callbacks& callbacks);
    Ending transcribe(const Job& job, const Callbacks& callbacks);
    Ending indexByMeaning(const Job& job, const Callbacks& callbacks);
    Callbacks callbacksOf(int id, const std::stop_token& stopping);
    void settle(int id, const Ending& ending);
    void changed();
    void changedState();
    static Job fromJson(const Poco::JSON::Object& stored);
    void load();
    void save();

    Stores& mStores;
    std::function<void()> mOnEnd;
    std::filesystem::path mFile;
    std::optional<FileLock> mOwner; ///< Of several desks of one home, the first keeps the list.
    std::mutex mMutex;
    std::condition_variable_any mChange;
    std::uint64_t mVersion = 1;
    int mNext = 1;
    std::map<int, Job> mJobs;
    std::jthread mThread; ///< Last, so that it ends before what it uses.
};

} // namespace kestrel::desk
