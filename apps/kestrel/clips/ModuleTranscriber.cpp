#include "apps/kestrel/clips/ModuleTranscriber.h"

#include "apps/kestrel/base/Failure.h"
#include "apps/kestrel/base/Files.h"
#include "apps/kestrel/clips/Transcript.h"
#include "apps/kestrel/clips/VoiceReel.h"
#include "apps/kestrel/media/QuietPoint.h"
#include "apps/kestrel/services/Store.h"

#include <Poco/UUIDGenerator.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <optional>
#include <thread>
#include <utility>

namespace kestrel {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::size_t kChunkSamples = std::size_t{30} * kSampleRate;
constexpr std::chrono::milliseconds kPollPause{300};

// The speech service gives up a transcription after 15 minutes.
constexpr Seconds kLongestRun{780};
constexpr Seconds kWantedRun{390};
constexpr Seconds kTimeToJudge{90};
constexpr Seconds kTimeWithoutProgress{300};
constexpr double kLeastShare = 0.05;

// What a language is told from: the stretch of so much audio with most speech in it.
constexpr std::size_t kLanguageSamples = std::size_t{20} * kSampleRate;
constexpr std::size_t kLeastSpeech = std::size_t{3} * kSampleRate;
constexpr std::size_t kFewestWords = 6;

constexpr std::size_t kLeastRest = kSampleRate / 2; ///< Voiced audio after the last word that may be a word.
constexpr double kPlainShare = 0.9;

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

std::int32_t toMs(std::size_t sample) {
    return static_cast<std::int32_t>(sample * 1000 / kSampleRate);
}

std::size_t resumePoint(const StoredBefore& stored) {
    std::int32_t end = 0;
    for (const KsNNDBEntrySeg& segment : stored)
        end = std::max(end, endOf(segment));
    return static_cast<std::size_t>(end) * kSampleRate / 1000;
}

/// What is stored of a part, timed from its start.
KsNNDB_STTClipEntry storedOf(const StoredBefore& stored, const AudioPart& part) {
    KsNNDB_STTClipEntry entry;
    for (KsNNDBEntrySeg segment : stored) {
        if (segment.wordStartsMS.empty() || startOf(segment) < toMs(part.start) ||
            startOf(segment) >= toMs(part.end()))
            continue;
        for (auto* const times : {&segment.wordStartsMS, &segment.wordEndsMS})
            std::for_each(times->begin(), times->end(),
                          [&](std::int32_t& time) { time -= toMs(part.start); });
        entry.segments.push_back(std::move(segment));
    }
    return entry;
}

/// Whether `upTo` lies inside the part and speech follows: kestrel was killed while it wrote the part. It is
/// recognised again as a whole, since the little that is stored tells too little about its voices.
bool endsInSpeech(const AudioPart& part, std::size_t upTo) {
    if (upTo <= part.start || upTo >= part.end()) return false;
    std::size_t spoken = 0;
    for (const SampleRange& range : part.voiced)
        spoken += range.end - std::min(std::max(range.begin, upTo), range.end);
    return spoken >= kLeastRest;
}

/// Languages that the recogniser itself confuses: none of them plainly disagrees with another of its row.
bool areClose(const std::string& one, const std::string& other) {
    static const std::vector<std::vector<std::string>> rows{{"da", "nn", "no", "sv"},
                                                            {"bs", "hr", "mk", "sl", "sr"},
                                                            {"ca", "es", "gl", "pt"},
                                                            {"be", "ru", "uk"},
                                                            {"cs", "sk"},
                                                            {"id", "jw", "ms", "su"},
                                                            {"hi", "ur"},
                                                            {"yue", "zh"},
                                                            {"af", "nl"}};
    return std::any_of(rows.begin(), rows.end(), [&](const std::vector<std::string>& row) {
        return std::count(row.begin(), row.end(), one) > 0 && std::count(row.begin(), row.end(), other) > 0;
    });
}

SampleRange mostSpoken(const AudioPart& part) {
    SampleRange best{part.start, part.start};
    std::size_t most = 0;
    for (const SampleRange& first : part.voiced) {
        const SampleRange window{first.begin, std::min(first.begin + kLanguageSamples, part.end())};
        std::size_t spoken = 0;
        for (const SampleRange& one : part.voiced) {
            const std::size_t begin = std::max(one.begin, window.begin);
            spoken += std::min(one.end, window.end) - std::min(begin, std::min(one.end, window.end));
        }
        if (spoken <= most) continue;
        most = spoken;
        best = window;
    }
    return most >= kLeastSpeech ? best : SampleRange{part.start, part.start};
}

} // namespace

/// Audio on its way to the engine, and the run that ends it.
///
/// The engine knows it by a name of its own: a kestrel that was killed may have left audio of the same clip
/// there, or a run that still goes on and will drop what is uploaded under its name.
class ModuleTranscriber::Upload {
public:
    Upload(ModuleTranscriber& owner, const ClipKey& clip, const Callbacks& callbacks)
        : mEngine(*owner.mEngine), mClip(clip), mCallbacks(callbacks),
          mName(fmt::format("{}/{}", clip.mediaGuid,
                            Poco::UUIDGenerator::defaultGenerator().createOne().toString())) {}
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;
    ~Upload() {
        if (!mFinished) discard();
    }

    void add(std::span<const std::int16_t> samples) {
        for (std::size_t begin = 0; begin < samples.size(); begin += kChunkSamples) {
            mCallbacks.throwIfCancelled();
            const std::size_t count = std::min(kChunkSamples, samples.size() - begin);
            check(
                mEngine.ProcessAudio(samples.data() + begin, mLength, count, mName, mClip.projectGuid, false),
                mEngine, "the speech engine refused the audio");
            mLength += count;
        }
    }

    KsNN_ErrorCode finish(KsNNDB_STTClipEntry& entry, const std::string& audioTracks,
                          const std::string& language) {
        const KsNN_ErrorCode code = mEngine.FinalizeTranscript(entry, mLength, mName, mClip.projectGuid,
                                                               audioTracks, language, false);
        mFinished = code == KsNN_Success;
        for (KsNNDBEntrySeg& segment : entry.segments)
            segment.mediaGuid = mClip.mediaGuid;
        return code;
    }

private:
    /// To finish in no language is refused, and the audio is dropped.
    void discard() {
        KsNNDB_STTClipEntry nothing;
        finish(nothing, "", "");
    }

    KsNNSpeechToTextInterface& mEngine;
    const ClipKey& mClip;
    const Callbacks& mCallbacks;
    std::string mName;
    std::size_t mLength = 0;
    bool mFinished = false;
};

/// Reports the progress of the running transcription, passes a cancellation on to it, and ends a run that
/// would take longer than the service waits; all from a thread of its own.
class ModuleTranscriber::Watch {
public:
    Watch(KsNNSpeechToTextInterface& observer, const Callbacks& callbacks, double from, double to,
          bool isTimed)
        : mThread([this, &observer, &callbacks, from, to, isTimed](const std::stop_token& stopping) {
              const Clock::time_point begin = Clock::now();
              for (; !stopping.stop_requested(); std::this_thread::sleep_for(kPollPause)) {
                  float done = 0.0F;
                  // Again and again: a run that just begins forgets earlier requests.
                  if (callbacks.isCancelled() || mShare < 1.0) {
                      observer.Cancel(false);
                  } else if (observer.GetProgress(done, false) == KsNN_Success) {
                      callbacks.report("transcribing", from + (to - from) * static_cast<double>(done));
                      if (isTimed) mShare = affordableShare(Clock::now() - begin, static_cast<double>(done));
                  }
              }
          }) {}

    /// Less than 1 when the run was ended because it would have taken too long.
    double affordable() const { return mShare; }

private:
    std::atomic<double> mShare{1.0};
    std::jthread mThread;
};

double affordableShare(std::chrono::duration<double> elapsed, double progress) {
    if (elapsed < kTimeToJudge) return 1.0;
    if (progress <= 0.0) return elapsed < kTimeWithoutProgress ? 1.0 : kLeastShare;
    const Seconds whole = elapsed / std::min(progress, 1.0);
    return whole <= kLongestRun ? 1.0 : std::max(kLeastShare, kWantedRun / whole);
}

ModuleTranscriber::ModuleTranscriber(EngineKind kind, Home home, std::string language,
                                     const RecogniserChoice& recogniser)
    : mKind(kind), mHome(std::move(home)), mModel(Recognisers(mHome).forRun(recogniser.model)),
      mTerms(recogniser.terms),
      mSettingsFile(kind == EngineKind::Service ? RecogniserSettings::fileOfService(mHome)
                                                : RecogniserSettings::fileOfThisProcess(mHome)),
      mLanguage(std::move(language)), mEngine(makeEngine(mKind, mHome)), mObserver(makeEngine(mKind, mHome)) {
    requireLanguage(*mEngine, mLanguage);
}

ModuleTranscriber::~ModuleTranscriber() {
    std::error_code ignored;
    if (mKind == EngineKind::Embedded) std::filesystem::remove(mSettingsFile, ignored);
}

KsNNDB_STTClipEntry ModuleTranscriber::transcribe(ClipAudio& audio, const ClipKey& key,
                                                  const StoredBefore& stored, const PartSink& done,
                                                  const Callbacks& callbacks) {
    std::optional<FileLock> turn;
    if (mKind == EngineKind::Service) turn = waitForService(mHome, callbacks);
    mWarnings.clear();
    RecogniserSettings::write(mSettingsFile, mModel.folder, mTerms);
    KsNNDB_STTClipEntry whole;
    whole.segments = stored;
    std::optional<KsNNDBEntrySeg> empty; // what the engine makes of a part without speech
    VoiceReel reel;
    const std::size_t resumeAt = resumePoint(stored);
    std::size_t length = partSamples();
    bool languageIsChecked = mLanguage == kFoundLanguage;
    while (std::optional<AudioPart> part = audio.next(length, callbacks)) {
        const bool isHalfStored = endsInSpeech(*part, resumeAt);
        if (!isHalfStored) {
            reel.learn(storedOf(stored, *part), part->samples);
            part->dropUpTo(resumeAt);
        }
        if (part->samples.empty()) continue;
        if (!languageIsChecked && lengthOf(part->voiced) >= kLeastSpeech) {
            languageIsChecked = true;
            const std::string other = otherLanguage(*part, key, callbacks);
            if (!other.empty())
                mWarnings.push_back(
                    fmt::format("the speech sounds like \"{}\", not \"{}\": if so, transcribe it "
                                "again with --language {}",
                                other, mLanguage, other));
        }
        const std::size_t before = part->samples.size();
        KsNNDB_STTClipEntry made = run(reel.samples(), *part, audio, key, callbacks);
        if (part->samples.size() < before) length = part->samples.size();
        reel.relabel(made);
        reel.learn(made, part->samples);
        if (!made.segments.empty() && made.segments.front().wordStartsMS.empty())
            empty = made.segments.front();
        std::erase_if(made.segments, [&](const KsNNDBEntrySeg& one) {
            return one.wordStartsMS.empty() ||
                   (isHalfStored && toMs(part->start) + startOf(one) < toMs(resumeAt));
        });

        KsNNDB_STTClipEntry placed = made;
        placed.segments.clear();
        KsNNDatabase::appendEntry(made, toMs(part->start), placed);
        for (KsNNDBEntrySeg& segment : placed.segments) {
            segment.segment = static_cast<std::int32_t>(whole.segments.size());
            whole.segments.push_back(segment);
        }
        whole.model = placed.model;
        whole.audioTracks = placed.audioTracks;
        if (!placed.segments.empty()) done(placed);
    }
    if (audio.position() == 0) throw Failure("has an audio track, but nothing in it could be decoded");
    if (whole.segments.empty() && empty) {
        whole.segments.push_back(*empty);
        done(whole);
    }
    return whole;
}

KsNNDB_STTClipEntry ModuleTranscriber::run(const std::vector<std::int16_t>& reel, AudioPart& part,
                                           ClipAudio& audio, const ClipKey& key, const Callbacks& callbacks) {
    const auto fraction = [&](std::size_t sample) {
        return audio.claimedSamples() > 0 ? static_cast<double>(sample) / audio.claimedSamples() : 0.0;
    };
    for (;;) {
        Upload upload(*this, key, callbacks);
        upload.add(reel);
        upload.add(part.samples);
        KsNNDB_STTClipEntry entry;
        const Watch watch(*mObserver, callbacks, fraction(part.start), fraction(part.end()),
                          mKind == EngineKind::Service);
        const KsNN_ErrorCode code = upload.finish(entry, audio.reader().trackDescription(), mLanguage);
        if (code == KsNN_Success) {
            checkModel(entry);
            return entry;
        }
        callbacks.throwIfCancelled();
        if (watch.affordable() == 1.0) check(code, *mEngine, "the speech engine failed");
        const auto rest =
            static_cast<std::size_t>(static_cast<double>(part.samples.size()) * watch.affordable());
        if (rest == 0) check(code, *mEngine, "the speech engine is too slow");
        audio.giveBack(part, part.start + rest);
    }
}

/// A service that was started by somebody else does not know our settings.
void ModuleTranscriber::checkModel(const KsNNDB_STTClipEntry& made) const {
    std::string size = mModel.folder.filename().string();
    for (const char* const prefix : {"faster-whisper-", "whisper-"}) {
        if (size.starts_with(prefix)) size.erase(0, std::string_view(prefix).size());
    }
    if (!made.model.ends_with("-" + size))
        throw Failure(fmt::format("the speech engine used the model {} and not {}: restart the services with "
                                  "`kestrel down` and `kestrel up`",
                                  made.model, mModel.name));
}

/// The language that the recogniser hears when nobody tells it, where that is plainly another one.
std::string ModuleTranscriber::otherLanguage(const AudioPart& part, const ClipKey& key,
                                             const Callbacks& callbacks) {
    const SampleRange window = mostSpoken(part);
    if (window.length() == 0) return "";
    KsNNDB_STTClipEntry entry;
    Upload upload(*this, key, callbacks);
    upload.add(std::span(part.samples).subspan(window.begin - part.start, window.length()));
    if (upload.finish(entry, "", kFoundLanguage) != KsNN_Success) {
        callbacks.throwIfCancelled();
        return ""; // the recogniser cannot tell languages, or does not hear any
    }
    std::map<std::string, std::size_t> words;
    std::size_t all = 0;
    for (const KsNNDBEntrySeg& segment : entry.segments) {
        words[segment.language] += segment.wordStartsMS.size();
        all += segment.wordStartsMS.size();
    }
    for (const auto& [language, count] : words) {
        if (language != mLanguage && all >= kFewestWords && !areClose(language, mLanguage) &&
            static_cast<double>(count) >= kPlainShare * static_cast<double>(all))
            return language;
    }
    return "";
}

} // namespace kestrel
