#include "apps/kestrel/clips/ModuleTranscriber.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/media/QuietPoint.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

namespace kestrel {

namespace {

constexpr std::size_t kChunkSamples = std::size_t{30} * kSampleRate;
/// The speech service gives up a transcription after 15 minutes; longer audio goes to it in parts.
constexpr std::size_t kLongestPart = std::size_t{40} * 60 * kSampleRate;
constexpr std::chrono::milliseconds kPollPause{300};

/// The service has one progress value and one cancel request for all who use it, so one kestrel of a home
/// uses it at a time: what is shown and cancelled is then its own.
FileLock waitForService(const Home& home, const Callbacks& callbacks) {
    const auto file = home.root() / "transcribing.lock";
    auto lock = FileLock::tryTake(file);
    if (!lock) callbacks.note("another kestrel is transcribing; waiting for it");
    for (; !lock; lock = FileLock::tryTake(file)) {
        callbacks.throwIfCancelled();
        std::this_thread::sleep_for(kPollPause);
    }
    return std::move(*lock);
}

/// Speakers are told apart within a part only, so a later part's labels say which part they belong to.
void appendPart(KsNNDB_STTClipEntry part, int number, std::size_t startSample, KsNNDB_STTClipEntry& whole) {
    if (number > 1) {
        for (KsNNDBEntrySeg& segment : part.segments)
            segment.speakerID += fmt::format(" (part {})", number);
    }
    const auto offset = static_cast<int>(startSample * 1000 / kSampleRate);
    KsNNDatabase::appendEntry(part, offset, whole);
    whole.model = part.model;
    whole.audioTracks = part.audioTracks;
}

void numberSegments(KsNNDB_STTClipEntry& entry) {
    // A part without speech comes back as one empty segment; the clip keeps that only when there is nothing
    // else.
    if (entry.segments.size() > 1)
        std::erase_if(entry.segments,
                      [](const KsNNDBEntrySeg& segment) { return segment.wordStartsMS.empty(); });
    std::int32_t number = 0;
    for (KsNNDBEntrySeg& segment : entry.segments)
        segment.segment = number++;
}

} // namespace

/// The stretch of a clip that one run of the engine transcribes.
///
/// The engine knows it by a name of its own: a kestrel that was killed may have left audio of the same clip
/// there, or a run that still goes on and will drop what is uploaded under its name.
class ModuleTranscriber::Part {
public:
    Part(ModuleTranscriber& owner, const ClipKey& clip, std::size_t startSample, const Callbacks& callbacks)
        : mOwner(owner), mClip(clip), mCallbacks(callbacks),
          mName(fmt::format("{}/{}", clip.mediaGuid,
                            Poco::UUIDGenerator::defaultGenerator().createOne().toString())),
          mStart(startSample) {}
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;
    ~Part() {
        if (!mFinished) discard();
    }

    std::size_t length() const { return mLength; }
    std::size_t end() const { return mStart + mLength; }

    void upload(const std::vector<std::int16_t>& samples, std::size_t count) {
        KsNNSpeechToTextInterface& engine = *mOwner.mEngine;
        check(engine.ProcessAudio(samples.data(), mLength, count, mName, mClip.projectGuid, false), engine,
              "the speech engine refused the audio");
        mLength += count;
    }

    KsNNDB_STTClipEntry finish(const std::string& audioTracks) {
        KsNNDB_STTClipEntry entry;
        const KsNN_ErrorCode code = finalize(entry, audioTracks, mOwner.mLanguage);
        if (code != KsNN_Success) mCallbacks.throwIfCancelled();
        check(code, *mOwner.mEngine, "the speech engine failed");
        mFinished = true;
        for (KsNNDBEntrySeg& segment : entry.segments)
            segment.mediaGuid = mClip.mediaGuid;
        return entry;
    }

private:
    KsNN_ErrorCode finalize(KsNNDB_STTClipEntry& entry, const std::string& audioTracks,
                            const std::string& language) {
        return mOwner.mEngine->FinalizeTranscript(entry, mLength, mName, mClip.projectGuid, audioTracks,
                                                  language, false);
    }

    /// To finish in no language is refused, and the audio is dropped.
    void discard() {
        KsNNDB_STTClipEntry nothing;
        finalize(nothing, "", "");
    }

    ModuleTranscriber& mOwner;
    const ClipKey& mClip;
    const Callbacks& mCallbacks;
    std::string mName;
    std::size_t mStart;
    std::size_t mLength = 0;
    bool mFinished = false;
};

/// Reports the progress of the running transcription and passes a cancellation on to it, from a thread of its
/// own.
class ModuleTranscriber::Watch {
public:
    Watch(KsNNSpeechToTextInterface& observer, const Callbacks& callbacks, double from, double to)
        : mThread([&observer, &callbacks, from, to](const std::stop_token& stopping) {
              while (!stopping.stop_requested()) {
                  float done = 0.0F;
                  if (callbacks
                          .isCancelled()) // again and again: a run that just begins forgets earlier requests
                      observer.Cancel(false);
                  else if (observer.GetProgress(done, false) == KsNN_Success)
                      callbacks.report("transcribing", from + (to - from) * static_cast<double>(done));
                  std::this_thread::sleep_for(kPollPause);
              }
          }) {}

private:
    std::jthread mThread;
};

ModuleTranscriber::ModuleTranscriber(EngineKind kind, Home home, std::string language)
    : mKind(kind), mHome(std::move(home)), mLanguage(std::move(language)), mEngine(makeEngine(mKind, mHome)),
      mObserver(makeEngine(mKind, mHome)) {
    requireLanguage(*mEngine, mLanguage);
}

KsNNDB_STTClipEntry ModuleTranscriber::transcribe(AudioReader& audio, const ClipKey& key,
                                                  const Callbacks& callbacks) {
    std::optional<FileLock> turn;
    if (mKind == EngineKind::Service) turn = waitForService(mHome, callbacks);
    const double total = audio.claimedDuration() * kSampleRate;
    const auto fraction = [&](std::size_t sample) {
        return total > 0 ? static_cast<double>(sample) / total : 0.0;
    };

    KsNNDB_STTClipEntry whole;
    std::vector<std::int16_t> samples = audio.read(kChunkSamples);
    if (samples.empty()) throw Failure("has an audio track, but nothing in it could be decoded");
    std::size_t start = 0;
    for (int number = 1; !samples.empty(); ++number) {
        Part part(*this, key, start, callbacks);
        while (!samples.empty() && part.length() + kChunkSamples < kLongestPart) {
            callbacks.throwIfCancelled();
            part.upload(samples, samples.size());
            callbacks.report("reading", fraction(part.end()));
            samples = audio.read(kChunkSamples);
        }
        if (const std::size_t cut = quietestPoint(samples); cut > 0) {
            part.upload(samples, cut);
            samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(cut));
        }
        const Watch watch(*mObserver, callbacks, fraction(start), fraction(part.end()));
        appendPart(part.finish(audio.trackDescription()), number, start, whole);
        start = part.end();
    }
    numberSegments(whole);
    return whole;
}

} // namespace kestrel
