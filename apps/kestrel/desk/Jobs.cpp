#include "apps/kestrel/desk/Jobs.h"

#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/clips/MeaningSearch.h"
#include "apps/kestrel/desk/Http.h"

#include <Poco/JSON/Array.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace fs = std::filesystem;

namespace kestrel::desk {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::ptrdiff_t kMostEnded = 200;
/// In the order of `State`.
constexpr std::array<const char*, 5> kStateNames{"waiting", "running", "done", "failed", "cancelled"};

std::string messageOf(const FileOutcome& outcome) {
    std::string text;
    switch (outcome.status) {
    case FileStatus::Transcribed:
    case FileStatus::Replaced:
        text = fmt::format("{} words", outcome.words);
        break;
    case FileStatus::NoSpeech:
        text = "no speech was found";
        break;
    case FileStatus::AlreadyComplete:
        return "was transcribed before";
    case FileStatus::Joined:
        return "was transcribed for another project before; it is in this one now, too";
    case FileStatus::Failed:
        return outcome.error;
    case FileStatus::Cancelled:
        return "";
    }
    for (const std::string& warning : outcome.warnings)
        text += "; " + warning;
    return text;
}

} // namespace

Jobs::Jobs(Stores& stores, std::function<void()> onEnd)
    : mStores(stores), mOnEnd(std::move(onEnd)), mFile(stores.home().root() / "desk" / "jobs.json") {
    fs::create_directories(mFile.parent_path());
    mOwner = FileLock::tryTake(fs::path(mFile).replace_extension(".lock"));
    if (mOwner) load();
    mThread = std::jthread([this](const std::stop_token& stopping) { run(stopping); });
}

Jobs::~Jobs() {
    mThread.request_stop();
    mChange.notify_all();
}

const char* Jobs::nameOf(State state) {
    return kStateNames.at(static_cast<std::size_t>(state));
}

bool Jobs::hasEnded(const Job& job) {
    return job.state != State::Waiting && job.state != State::Running;
}

void Jobs::changed() {
    ++mVersion;
    mChange.notify_all();
}

Jobs::Job& Jobs::find(int id) {
    const auto found = mJobs.find(id);
    if (found == mJobs.end()) throw HttpError(404, fmt::format("there is no job {}", id));
    return found->second;
}

/// After a change that the next start of the desk is to know.
void Jobs::changedState() {
    auto ended =
        std::count_if(mJobs.begin(), mJobs.end(), [](const auto& job) { return hasEnded(job.second); });
    for (auto job = mJobs.begin(); ended > kMostEnded && job != mJobs.end();) {
        if (!hasEnded(job->second)) {
            ++job;
            continue;
        }
        job = mJobs.erase(job);
        --ended;
    }
    save();
    changed();
}

Jobs::Job Jobs::fromJson(const Poco::JSON::Object& stored) {
    Job job;
    job.file = stored.getValue<std::string>("file");
    job.project = stored.getValue<std::string>("project");
    job.language = stored.getValue<std::string>("language");
    job.again = stored.getValue<bool>("again");
    job.message = stored.getValue<std::string>("message");
    job.clip = stored.getValue<std::string>("clip");
    const auto name =
        std::find(kStateNames.begin(), kStateNames.end(), stored.getValue<std::string>("state"));
    job.state = name == kStateNames.end() ? State::Failed : static_cast<State>(name - kStateNames.begin());
    if (job.state == State::Running) {
        job.state = State::Failed;
        job.message = "the desk ended before this was done; what is stored stays, try again to resume";
    }
    return job;
}

void Jobs::load() {
    std::error_code error;
    if (!fs::exists(mFile, error)) return;
    // A damaged entry must neither keep the desk from starting nor cost the other jobs; the file is kept
    // beside it.
    bool isDamaged = false;
    try {
        const auto jobs = readJson(mFile)->getArray("jobs");
        for (const auto& value : *jobs) {
            try {
                mJobs.emplace(mNext, fromJson(*value.extract<Poco::JSON::Object::Ptr>()));
                ++mNext;
            } catch (const Poco::Exception&) {
                isDamaged = true;
            }
        }
    } catch (const std::exception&) {
        isDamaged = true;
    }
    if (!isDamaged) return;
    fs::rename(mFile, fs::path(mFile).replace_extension(".damaged.json"), error);
    if (!error) save(); // what could be read must not depend on a later change
}

void Jobs::save() {
    if (!mOwner) return;
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const auto& [id, job] : mJobs) {
        auto stored = jsonObject();
        stored->set("file", job.file.string());
        stored->set("project", job.project);
        stored->set("language", job.language);
        stored->set("again", job.again);
        stored->set("state", nameOf(job.state));
        stored->set("message", job.message);
        stored->set("clip", job.clip);
        list->add(stored);
    }
    auto document = jsonObject();
    document->set("jobs", list);
    try {
        replaceFile(mFile, toText(document), 0600);
    } catch (const std::exception&) {
        // A full disk is told by the jobs themselves.
    }
}

int Jobs::add(Job job) {
    const std::scoped_lock lock(mMutex);
    const int id = mNext++;
    mJobs.emplace(id, std::move(job));
    changedState();
    return id;
}

int Jobs::add(const fs::path& file, const std::string& project, const std::string& language, bool again) {
    Job job;
    job.file = file;
    job.project = project;
    job.language = language;
    job.again = again;
    return add(std::move(job));
}

int Jobs::addIndexing(const std::string& project) {
    Job job;
    job.project = project;
    return add(std::move(job));
}

void Jobs::cancel(int id) {
    const std::scoped_lock lock(mMutex);
    Job& job = find(id);
    job.isCancelled = true;
    if (job.state == State::Waiting) job.state = State::Cancelled;
    changedState();
}

void Jobs::retry(int id) {
    const std::scoped_lock lock(mMutex);
    Job& job = find(id);
    if (job.state != State::Failed && job.state != State::Cancelled)
        throw HttpError(409, "only what failed or was cancelled can be tried again");
    job.state = State::Waiting;
    job.isCancelled = false;
    job.message.clear();
    job.fraction = 0.0;
    changedState();
}

void Jobs::forget(int id) {
    const std::scoped_lock lock(mMutex);
    if (!hasEnded(find(id))) throw HttpError(409, "the job has not ended: cancel it first");
    mJobs.erase(id);
    changedState();
}

void Jobs::forgetEnded() {
    const std::scoped_lock lock(mMutex);
    std::erase_if(mJobs, [](const auto& job) { return hasEnded(job.second); });
    changedState();
}

Poco::JSON::Object::Ptr Jobs::toJson(int id, const Job& job) {
    auto object = jsonObject();
    object->set("job", id);
    object->set("kind", job.file.empty() ? "meaning" : "transcription");
    object->set("name", job.file.empty() ? job.project : job.file.filename().string());
    object->set("project", job.project);
    object->set("language", job.language);
    object->set("state", nameOf(job.state));
    if (job.state == State::Running) {
        object->set("stage", job.stage);
        object->set("fraction", roundedScore(static_cast<float>(job.fraction)));
        // From the pace so far; the first moments tell nothing.
        constexpr double kEnough = 0.02;
        if (job.fraction > kEnough) {
            const double taken = std::chrono::duration<double>(Clock::now() - job.begun).count();
            object->set("secondsLeft", static_cast<int>(taken * (1.0 - job.fraction) / job.fraction));
        }
    }
    if (!job.message.empty()) object->set("message", job.message);
    if (!job.clip.empty()) object->set("clip", job.clip);
    return object;
}

Poco::JSON::Object::Ptr Jobs::toJson() {
    const std::scoped_lock lock(mMutex);
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (const auto& [id, job] : mJobs)
        list->add(toJson(id, job));
    auto document = jsonObject();
    document->set("jobs", list);
    return document;
}

bool Jobs::waitForChange(std::uint64_t& seen, std::chrono::milliseconds longest) {
    std::unique_lock lock(mMutex);
    mChange.wait_for(lock, longest, [&] { return mVersion != seen; });
    const bool isNew = mVersion != seen;
    seen = mVersion;
    return isNew;
}

void Jobs::run(const std::stop_token& stopping) {
    while (true) {
        int id = 0;
        Job job;
        {
            std::unique_lock lock(mMutex);
            auto next = mJobs.end();
            const auto isOneWaiting = [&] {
                next = std::find_if(mJobs.begin(), mJobs.end(),
                                    [](const auto& known) { return known.second.state == State::Waiting; });
                return next != mJobs.end();
            };
            if (!mChange.wait(lock, stopping, isOneWaiting) || stopping.stop_requested()) return;
            id = next->first;
            next->second.state = State::Running;
            next->second.stage = "reading";
            next->second.begun = Clock::now();
            job = next->second;
            changedState();
        }
        const Callbacks callbacks = callbacksOf(id, stopping);
        const Ending ending = perform(job, callbacks);
        // The next start finds what was interrupted as one that ran.
        if (stopping.stop_requested() && ending.state != State::Done) return;
        mOnEnd();
        settle(id, ending);
    }
}

Callbacks Jobs::callbacksOf(int id, const std::stop_token& stopping) {
    Callbacks callbacks;
    callbacks.progress = [this, id](const std::string& stage, double fraction) {
        const std::scoped_lock lock(mMutex);
        Job& job = find(id);
        job.stage = stage;
        job.fraction = std::clamp(fraction, 0.0, 1.0);
        changed();
    };
    callbacks.notice = [this, id](const std::string& message) {
        const std::scoped_lock lock(mMutex);
        find(id).stage = message;
        changed();
    };
    callbacks.cancelled = [this, id, &stopping] {
        const std::scoped_lock lock(mMutex);
        return stopping.stop_requested() || find(id).isCancelled;
    };
    return callbacks;
}

Jobs::Ending Jobs::perform(const Job& job, const Callbacks& callbacks) {
    try {
        return job.file.empty() ? indexByMeaning(job, callbacks) : transcribe(job, callbacks);
    } catch (const Cancelled&) {
        return {State::Cancelled, "", ""};
    } catch (const std::exception& failure) {
        return {State::Failed, failure.what(), ""};
    }
}

Jobs::Ending Jobs::transcribe(const Job& job, const Callbacks& callbacks) {
    TranscriptionSettings settings;
    settings.project = job.project;
    settings.language = job.language;
    settings.again = job.again;
    auto transcriber = mStores.exclusively([&] { return std::make_unique<ClipTranscriber>(settings); });
    const FileOutcome outcome = transcriber->transcribe(job.file, callbacks);
    const State state = outcome.status == FileStatus::Failed      ? State::Failed
                        : outcome.status == FileStatus::Cancelled ? State::Cancelled
                                                                  : State::Done;
    return {state, messageOf(outcome), outcome.clip};
}

Jobs::Ending Jobs::indexByMeaning(const Job& job, const Callbacks& callbacks) {
    callbacks.report("loading the models", 0.0);
    const MeaningIndexing done =
        mStores.withMeaning([&](KsNNDatabase& store) { return indexMeaning(store, job.project, callbacks); });
    return {State::Done, fmt::format("{} new segments of {} clips", done.segments, done.clips), ""};
}

void Jobs::settle(int id, const Ending& ending) {
    const std::scoped_lock lock(mMutex);
    Job& job = find(id);
    job.state = ending.state;
    job.message = ending.message;
    job.clip = ending.clip;
    job.fraction = 1.0;
    changedState();
}

} // namespace kestrel::desk
