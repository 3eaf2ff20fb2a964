#include "apps/kestrel/desk/Derived.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/media/AudioReader.h"
#include "apps/kestrel/media/ClipClock.h"
#include "apps/kestrel/services/Process.h"

#include <Poco/Crypto/DigestEngine.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

constexpr std::chrono::milliseconds kPollPause{200};
constexpr std::chrono::seconds kStopPatience{3};

/// Identifiers of clips that others put into the store may hold anything; a file name may not.
std::string fileName(const std::string& clip) {
    Poco::Crypto::DigestEngine digest("SHA256");
    digest.update(clip);
    return Poco::DigestEngine::digestToHex(digest.digest());
}

/// The last time that FFmpeg's progress file tells, in seconds.
double secondsDone(const fs::path& progress) {
    std::ifstream file(progress);
    double seconds = 0.0;
    constexpr std::string_view kName = "out_time_us=";
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(kName)) seconds = std::atof(line.c_str() + kName.size()) / 1e6;
    }
    return seconds;
}

fs::path ffmpeg() {
    for (const char* folder : {"/usr/bin", "/usr/local/bin"}) {
        std::error_code error;
        if (fs::exists(fs::path(folder) / "ffmpeg", error)) return fs::path(folder) / "ffmpeg";
    }
    throw Failure("previews need the program ffmpeg: install it with your system's packages");
}

} // namespace

Derived::Derived(const Home& home)
    : mFolder(home.root() / "desk"), mThread([this](const std::stop_token& stopping) { run(stopping); }) {
    fs::create_directories(mFolder);
    fs::permissions(mFolder, fs::perms::owner_all);
}

Derived::~Derived() {
    mThread.request_stop();
    mWake.notify_all();
}

fs::path Derived::fileOf(Kind kind, const std::string& clip) const {
    return mFolder / (fileName(clip) + (kind == Kind::Peaks ? ".peaks" : ".mp4"));
}

Derived::Status Derived::ask(Kind kind, const std::string& clip, const fs::path& media) {
    const fs::path file = fileOf(kind, clip);
    std::error_code error;
    if (fs::exists(file, error)) return {State::Ready, 1.0, "", file};
    const std::scoped_lock lock(mMutex);
    const auto [known, isNew] = mStatus.try_emplace({kind, clip});
    Status status = known->second;
    if (isNew) {
        mQueue.push_back({{kind, clip}, media});
        mWake.notify_all();
    } else if (status.state == State::Failed) {
        mStatus.erase(known);
    }
    return status;
}

void Derived::run(const std::stop_token& stopping) {
    while (!stopping.stop_requested()) {
        Work work;
        {
            std::unique_lock lock(mMutex);
            if (!mWake.wait(lock, stopping, [this] { return !mQueue.empty(); })) return;
            // A wave form is made in seconds, a preview in minutes.
            const auto next =
                std::min_element(mQueue.begin(), mQueue.end(),
                                 [](const Work& a, const Work& b) { return a.key.first < b.key.first; });
            work = *next;
            mQueue.erase(next);
            mStatus[work.key].state = State::Running;
        }
        std::string failure;
        try {
            make(work, stopping);
        } catch (const std::exception& error) {
            failure = error.what();
        }
        const std::scoped_lock lock(mMutex);
        if (failure.empty())
            mStatus.erase(work.key);
        else
            mStatus[work.key] = {State::Failed, 0.0, failure, {}};
    }
}

void Derived::make(const Work& work, const std::stop_token& stopping) {
    if (work.key.first == Kind::Peaks)
        makePeaks(work, stopping);
    else
        makePreview(work, stopping);
}

void Derived::tell(const Key& key, double fraction) {
    const std::scoped_lock lock(mMutex);
    mStatus[key].fraction = std::clamp(fraction, 0.0, 1.0);
}

void Derived::makePeaks(const Work& work, const std::stop_token& stopping) {
    AudioReader audio(work.media);
    std::string peaks;
    constexpr std::size_t kPerPeak = kSampleRate / kPeaksPerSecond;
    constexpr std::size_t kChunk = kPerPeak * 1000;
    while (!stopping.stop_requested()) {
        const std::vector<float> samples = audio.read(kChunk);
        for (std::size_t begin = 0; begin < samples.size(); begin += kPerPeak) {
            float loudest = 0.0F;
            for (std::size_t i = begin; i < std::min(begin + kPerPeak, samples.size()); ++i)
                loudest = std::max(loudest, std::abs(samples[i]));
            peaks += static_cast<char>(static_cast<unsigned char>(std::min(loudest, 1.0F) * 255.0F));
        }
        if (samples.size() < kChunk) break;
        if (audio.claimedDuration() > 0)
            tell(work.key, static_cast<double>(peaks.size()) / kPeaksPerSecond / audio.claimedDuration());
    }
    if (!stopping.stop_requested()) replaceFile(fileOf(Kind::Peaks, work.key.second), peaks, 0600);
}

void Derived::makePreview(const Work& work, const std::stop_token& stopping) {
    const fs::path target = fileOf(Kind::Preview, work.key.second);
    const fs::path partial = fs::path(target).replace_extension(".partial.mp4");
    const fs::path progress = fs::path(target).replace_extension(".progress");
    const fs::path log = fs::path(target).replace_extension(".log");
    const ClipClock clock = readClock(work.media, {});
    const double length = static_cast<double>(clock.rate.millisecondsAt(clock.frameCount)) / 1000.0;
    std::vector<std::string> arguments{"-nostdin",
                                       "-y",
                                       "-v",
                                       "error",
                                       "-progress",
                                       progress.string(),
                                       "-protocol_whitelist",
                                       "file",
                                       "-i",
                                       "file:" + work.media.string()};
    // The audio track that was transcribed is the best one, which FFmpeg takes by itself.
    if (clock.hasVideo)
        arguments.insert(arguments.end(),
                         {"-vf", "scale=-2:'min(540,trunc(ih/2)*2)'", "-c:v", "libx264", "-preset",
                          "veryfast", "-crf", "27", "-pix_fmt", "yuv420p", "-g", "50"});
    else
        arguments.emplace_back("-vn");
    arguments.insert(arguments.end(), {"-c:a", "aac", "-ac", "2", "-b:a", "128k", "-movflags", "+faststart",
                                       "-sn", "-dn", "file:" + partial.string()});
    std::error_code ignored;
    fs::remove(log, ignored);
    const Process process = startDetached(ffmpeg(), arguments, log);
    while (process.isRunning()) {
        if (stopping.stop_requested()) {
            kestrel::stop(process, kStopPatience);
            break;
        }
        if (length > 0) tell(work.key, secondsDone(progress) / length);
        std::this_thread::sleep_for(kPollPause);
    }
    std::ifstream end(progress);
    const std::string told{std::istreambuf_iterator<char>(end), {}};
    const std::string reason = fs::exists(log, ignored) ? readFile(log) : "";
    fs::remove(progress, ignored);
    fs::remove(log, ignored);
    const bool isWhole = !stopping.stop_requested() && told.ends_with("progress=end\n") &&
                         fs::exists(partial, ignored) && fs::file_size(partial, ignored) > 0;
    if (isWhole) {
        fs::rename(partial, target);
        return;
    }
    fs::remove(partial, ignored);
    if (!stopping.stop_requested())
        throw Failure(fmt::format("no preview could be made{}{}", reason.empty() ? "" : ": ",
                                  reason.substr(0, reason.find('\n'))));
}

} // namespace kestrel::desk
