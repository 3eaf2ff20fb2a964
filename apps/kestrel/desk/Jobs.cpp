#include "apps/kestrel/desk/Jobs.h"

#include "apps/kestrel/base/Json.h"
#include "apps/kestrel/desk/Http.h"

#include <Poco/JSON/Array.h>
#include <fmt/format.h>

#include <algorithm>

namespace kestrel::desk {

namespace {

using Clock = std::chrono::steady_clock;

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

Jobs::Jobs(Stores& stores)
    : mStores(stores), mThread([this](const std::stop_token& stopping) { run(stopping); }) {
}

Jobs::~Jobs() {
    mThread.request_stop();
    mChange.notify_all();
}

const char* Jobs::nameOf(State state) {
    switch (state) {
    case State::Waiting:
        return "waiting";
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

void Jobs::changed() {
    ++mVersion;
    mChange.notify_all();
}

Jobs::Job& Jobs::find(int id) {
    const auto found = mJobs.find(id);
    if (found == mJobs.end()) throw HttpError(404, fmt::format("there is no job {}", id));
    return found->second;
}

int Jobs::add(const std::filesystem::path& file, const std::string& project, const std::string& language) {
    const std::scoped_lock lock(mMutex);
    Job job;
    job.file = file;
    job.project = project;
    job.language = language;
    mJobs.emplace(mNext, std::move(job));
    changed();
    return mNext++;
}

void Jobs::cancel(int id) {
    const std::scoped_lock lock(mMutex);
    Job& job = find(id);
    job.isCancelled = true;
    if (job.state == State::Waiting) job.state = State::Cancelled;
    changed();
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
    changed();
}

void Jobs::forget(int id) {
    const std::scoped_lock lock(mMutex);
    const State state = find(id).state;
    if (state == State::Waiting || state == State::Running)
        throw HttpError(409, "the job has not ended: cancel it first");
    mJobs.erase(id);
    changed();
}

Poco::JSON::Object::Ptr Jobs::toJson(int id, const Job& job) {
    auto object = jsonObject();
    object->set("job", id);
    object->set("name", job.file.filename().string());
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
        TranscriptionSettings settings;
        std::filesystem::path file;
        {
            std::unique_lock lock(mMutex);
            auto next = mJobs.end();
            const auto isOneWaiting = [&] {
                next = std::find_if(mJobs.begin(), mJobs.end(),
                                    [](const auto& job) { return job.second.state == State::Waiting; });
                return next != mJobs.end();
            };
            if (!mChange.wait(lock, stopping, isOneWaiting) || stopping.stop_requested()) return;
            Job& job = next->second;
            id = next->first;
            file = job.file;
            settings.project = job.project;
            settings.language = job.language;
            job.state = State::Running;
            job.stage = "reading";
            job.begun = Clock::now();
            changed();
        }
        settle(id, transcribe(id, settings, file, stopping));
    }
}

FileOutcome Jobs::transcribe(int id, const TranscriptionSettings& settings, const std::filesystem::path& file,
                             const std::stop_token& stopping) {
    Callbacks callbacks;
    callbacks.progress = [&](const std::string& stage, double fraction) {
        const std::scoped_lock lock(mMutex);
        Job& job = find(id);
        job.stage = stage;
        job.fraction = std::clamp(fraction, 0.0, 1.0);
        changed();
    };
    callbacks.notice = [&](const std::string& message) {
        const std::scoped_lock lock(mMutex);
        find(id).stage = message;
        changed();
    };
    callbacks.cancelled = [&] {
        const std::scoped_lock lock(mMutex);
        return stopping.stop_requested() || find(id).isCancelled;
    };
    try {
        auto transcriber = mStores.exclusively([&] { return std::make_unique<ClipTranscriber>(settings); });
        return transcriber->transcribe(file, callbacks);
    } catch (const std::exception& failure) {
        FileOutcome outcome;
        outcome.error = failure.what();
        return outcome;
    }
}

void Jobs::settle(int id, const FileOutcome& outcome) {
    const std::scoped_lock lock(mMutex);
    Job& job = find(id);
    job.message = messageOf(outcome);
    job.clip = outcome.clip;
    job.fraction = 1.0;
    job.state = outcome.status == FileStatus::Failed      ? State::Failed
                : outcome.status == FileStatus::Cancelled ? State::Cancelled
                                                          : State::Done;
    changed();
}

} // namespace kestrel::desk
