#pragma once

#include "apps/kestrel/base/Callbacks.h"
#include "apps/kestrel/clips/Transcription.h"
#include "apps/kestrel/home/Home.h"
#include "kestrelml/store/KsNNDatabase.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// What the files of one request have in common.
struct TranscriptionSettings {
    std::string project;
    std::string language;              ///< Empty: found from the speech.
    std::optional<TrackChoice> tracks; ///< Without a value: the track in which somebody speaks.
    EngineKind engine = EngineKind::Service;
    std::string model;           ///< Recognition model; empty: the selected one.
    std::filesystem::path terms; ///< File of names and terms for this run.
    bool takeOverLock = false;   ///< Write a clip even though another program left it locked.
    bool again = false;          ///< Replace what the store has of the clip.
};

enum class FileStatus {
    Transcribed,
    NoSpeech, ///< Stored, without a word: nobody speaks in it.
    Replaced, ///< Transcribed, in the place of what the store had.
    AlreadyComplete,
    Joined, ///< The store had the transcript for another project, now it has it for this one, too.
    Failed,
    Cancelled
};

/// What became of one file.
struct FileOutcome {
    std::filesystem::path file;
    std::string clip; ///< Identifier; empty when the file could not be read.
    FileStatus status = FileStatus::Failed;
    std::string error; ///< Why it failed.
    std::size_t segments = 0;
    std::size_t words = 0;
    std::int32_t endMs = 0; ///< End of the last word.
    std::vector<std::string> warnings;
};

/// Decodes media files, transcribes them and stores the transcripts.
class ClipTranscriber {
public:
    /// @throws Failure when a service is unavailable or the language is unknown.
    explicit ClipTranscriber(TranscriptionSettings settings);

    /// Completes what an earlier run was replacing when it ended. Call once, before the first file.
    void completeInterrupted(const Callbacks& callbacks);

    /// Transcribes one file. A failure becomes part of the outcome, so that the next file can be tried.
    FileOutcome transcribe(const std::filesystem::path& file, const Callbacks& callbacks);

    const KsNNProject& project() const { return mProject; }

private:
    void transcribeFile(FileOutcome& outcome, const Callbacks& callbacks);
    void nameClip(const FileOutcome& outcome, KsNNDB_STTClipEntry& entry) const;
    void write(FileOutcome& outcome, ClipAudio& audio, const Callbacks& callbacks);
    void replace(FileOutcome& outcome, ClipAudio& audio, const Callbacks& callbacks);
    void describe(const KsNNDB_STTClipEntry& entry, const ClipAudio& audio, FileOutcome& outcome) const;
    void settle(FileOutcome& outcome, FileStatus status) const;
    void remember(const FileOutcome& outcome) const;

    TranscriptionSettings mSettings;
    Home mHome;
    KsNNDatabase mStore;
    SpeechDetector mDetector;
    std::unique_ptr<Transcriber> mTranscriber;
    KsNNProject mProject;
};

} // namespace kestrel
