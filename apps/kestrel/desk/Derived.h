#pragma once

#include "apps/kestrel/home/Home.h"

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace kestrel::desk {

/// What is made from a clip's media in the background and kept: the wave form, and for media that browsers
/// cannot play a preview that they can.
class Derived {
public:
    enum class Kind { Peaks, Preview };
    enum class State { Waiting, Running, Ready, Failed };
    struct Status {
        State state = State::Waiting;
        double fraction = 0.0;
        std::string error;
        std::filesystem::path file; ///< When ready.
    };

    explicit Derived(const Home& home);
    Derived(const Derived&) = delete;
    Derived& operator=(const Derived&) = delete;
    ~Derived();

    /// What there is; begins to make it when there is nothing. A failure is told once, then tried again.
    Status ask(Kind kind, const std::string& clip, const std::filesystem::path& media);
    std::filesystem::path fileOf(Kind kind, const std::string& clip) const;

    /// Bytes of the wave form for each second: the loudest sample's level, 0 to 255.
    static constexpr int kPeaksPerSecond = 20;

private:
    using Key = std::pair<Kind, std::string>;
    struct Work {
        Key key;
        std::filesystem::path media;
    };

    void run(const std::stop_token& stopping);
    void make(const Work& work, const std::stop_token& stopping);
    void makePeaks(const Work& work, const std::stop_token& stopping);
    void makePreview(const Work& work, const std::stop_token& stopping);
    void tell(const Key& key, double fraction);

    std::filesystem::path mFolder;
    std::mutex mMutex;
    std::condition_variable_any mWake;
    std::deque<Work> mQueue;
    std::map<Key, Status> mStatus; ///< Of what is not ready.
    std::jthread mThread;          ///< Last, so that it ends before what it uses.
};

} // namespace kestrel::desk
