#pragma once

/// @file
/// What `KsNNDatabase::FindPhrase` is asked, and what it finds.

#include <cstddef>
#include <cstdint>
#include <string>

/// A phrase to look for, and where. Fields that are empty do not restrict the search.
struct KsNNPhraseQuery {
    std::string text;        ///< Phrase.
    std::string projectGuid; ///< Project whose clips are searched; never empty.
    std::string mediaGuid;   ///< Search this clip only.
    std::string speakerID;   ///< Search segments with this speaker label only.
    std::string speakerGuid; ///< Search segments that are assigned to this speaker only.
    float threshold = 0.6F;  ///< Lowest score of a hit, 0 to 1; 1 finds what is equal in normal form only.
    int maxSegments = 0;     ///< Segments to look at, best first; 0 or less: the index's default, 10.
};

/// A place where a phrase is spoken.
struct KsNNPhraseHit {
    std::string mediaGuid;      ///< Clip.
    std::string clipName;       ///< Its name; empty when its segment 0 is missing.
    std::int32_t segment = -1;  ///< Index of the segment within the clip.
    std::string text;           ///< Transcript of the segment as stored.
    std::string language;       ///< Language code of the segment.
    std::string speakerID;      ///< Speaker label of the segment; empty when it has none.
    std::string speakerGuid;    ///< Speaker that the segment is assigned to; empty when it is to none.
    std::int32_t wordIndex = 0; ///< First matched word, as `get_words_in_string` counts the words of `text`.
    std::int32_t wordCount = 0; ///< Number of matched words.
    std::size_t matchBegin = 0; ///< Where the matched words begin in `text`, in bytes.
    std::size_t matchEnd = 0;   ///< Where they end, exclusive.
    float score = 0.0F;         ///< 0 to 1.
    std::int32_t startMS = 0;   ///< Start of the first matched word.
    std::int32_t wordEndMS = 0; ///< End of the first matched word.
    std::int32_t endMS = 0;     ///< End of the last matched word.
};
