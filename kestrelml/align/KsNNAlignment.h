#pragma once

/// @file
/// Where the lines of a script begin in a transcript.

#include "kestrelml/core/Export.h"

#include <cstdint>
#include <vector>

/// Where one script line begins. A score of 0 means that the line was not found.
class KSNN_API KsNNAlignmentItem {
public:
    KsNNAlignmentItem(int lineNumber, int wordIndex, float score, int startMs);

    std::int32_t lineNumber; ///< Number of the transcript line in which the script line begins.
    std::int32_t wordIndex;  ///< Word of that transcript line, from 0.
    float score;             ///< Match score of the line's beginning, 0 to 1.
    std::int32_t startMs;    ///< Start of that word when the transcript has times, else 0.
};

/// One item for each script line that took part, in script order.
class KSNN_API KsNNAlignment : public std::vector<KsNNAlignmentItem> {
public:
    using std::vector<KsNNAlignmentItem>::vector;
};
