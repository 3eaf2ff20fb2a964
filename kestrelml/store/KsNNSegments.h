#pragma once

/// @file
/// Single segments out of many clips.

#include "kestrelml/store/KsNNDatabase.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace kestrelml {

/// Numbers of segments, by clip.
using SegmentNumbers = std::map<std::string, std::set<std::int32_t>>;

/// Reads some segments of clips of a project, with one search for every 200 clips however long these are. One
/// thread at a time uses a store.
/// @param projectGuid Clips of other projects are left out.
/// @param wanted At most 10,000 segments of one clip. Those that do not exist are left out.
/// @param clips Receives the segments by clip, in order, in place of what it holds; a clip's own fields are
///              filled in only if its segment 0 is among them. A clip with a segment that cannot be read is
///              left out, and the report says why.
/// @returns `KsNN_Success`, also when the store is empty; `KsNN_Error` for too many segments or a refused
/// search, `KsNN_Exception` when the service cannot be reached. `clips` is empty after a failure.
KSNN_API KsNN_ErrorCode readSegments(KsNNDatabase& store, const std::string& projectGuid,
                                     const SegmentNumbers& wanted,
                                     std::map<std::string, KsNNDB_STTClipEntry>& clips, bool debug);

} // namespace kestrelml
