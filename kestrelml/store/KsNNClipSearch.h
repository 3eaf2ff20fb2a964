#pragma once

/// @file
/// What `KsNNDatabase::FindClips` is asked, and what it finds.

#include "kestrelml/core/KsNNBase.h"

#include <cstdint>
#include <string>
#include <vector>

/// Which clips to list. Fields that are empty do not restrict the list.
struct KsNNClipQuery {
    std::string projectGuid;     ///< Only clips of this project.
    std::string mediaGuid;       ///< Only this clip.
    std::string clipName;        ///< Only clips of exactly this name, which may have 256 characters.
    bool unfinishedOnly = false; ///< Only clips whose transcription is not complete.
    bool withContents = false;   ///< Also tell what is said of the segments.
};

/// Speaker of some segments of a clip.
struct KsNNClipSpeaker {
    std::string speakerID;   ///< Label that diarization gave the segments.
    std::string speakerGuid; ///< Speaker that they are assigned to; empty when they are to none.
};

/// A clip without its transcript.
struct KsNNClipSummary {
    std::string mediaGuid;
    std::string clipName;
    std::vector<KsNNProject> projects;
    bool isComplete = false;
    /// @name Contents
    /// Read only with `KsNNClipQuery::withContents`.
    /// @{
    std::int32_t segmentCount = 0;
    std::int32_t endMS = 0;                ///< End of the last word; 0 when nothing is said.
    std::vector<std::string> languages;    ///< Codes, the one of most segments first; at most 100.
    std::vector<KsNNClipSpeaker> speakers; ///< Those of most segments first; at most 100 labels.
    /// @}
};
