#pragma once

/// @file
/// Single segments out of many clips.

#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

/// Numbers of segments, by clip.
using KsNNSegmentNumbers = std::map<std::string, std::set<std::int32_t>>;

/// Reads some segments of clips of a project, 10,000 at most, with one search however long the clips are.
/// @param clips The segments that there are, by clip and in order; a clip's own fields are filled in only if
/// its segment 0 is among them.
/// @return KsNN_Success, also when the store is empty; else the store has the report.
KSNN_API KsNN_ErrorCode readSegments(KsNNDatabase& store, const std::string& projectGuid,
                                     const KsNNSegmentNumbers& wanted,
                                     std::map<std::string, KsNNDB_STTClipEntry>& clips, bool debug);
