#pragma once

/// @file
/// The layouts of a transcript dump. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace kestrelml::detail {

/// What a layout writes, and where it gets the rest.
struct DumpSource {
    const KsNNDB_STTClipEntry& entry;
    const std::string& projectName;
    const std::vector<KsNNTC>& timecodes; ///< One for each segment.
    /// Replaces a speaker's label by the name of an assigned speaker.
    std::function<KsNN_ErrorCode(const KsNNDBEntrySeg& seg, std::string& label)> nameSpeaker;
    /// The words of a segment in the normal form of searches, as UTF-8.
    std::function<std::vector<std::string>(const KsNNDBEntrySeg& seg)> normalWords;
    bool debug; ///< Some layouts repeat lines on standard output.
};

/// Writes a transcript down; ends with the first result of `DumpSource::nameSpeaker` that is not
/// KsNN_Success.
using TranscriptLayout = KsNN_ErrorCode (*)(const DumpSource& source, std::ostream& out);

/// Every word with its times, to check a transcript by.
KsNN_ErrorCode writeCheckListing(const DumpSource& source, std::ostream& out);
/// Text to read, with speakers and time codes.
KsNN_ErrorCode writeReadableScript(const DumpSource& source, std::ostream& out);
/// The script that subtitling programs take.
KsNN_ErrorCode writeSubtitleScript(const DumpSource& source, std::ostream& out);

/// Speaker, time codes and text of every segment, which two layouts share.
KsNN_ErrorCode writeSpeakerBlocks(const DumpSource& source, std::ostream& out);

} // namespace kestrelml::detail
