#pragma once

/// @file
/// The layouts of a transcript dump: one source file each. Internal.

#include "kestrelml/core/KsNNBase.h"

#include <functional>
#include <memory>
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

/// A way of writing a transcript down.
class TranscriptLayout {
public:
    TranscriptLayout() = default;
    TranscriptLayout(const TranscriptLayout&) = delete;
    TranscriptLayout& operator=(const TranscriptLayout&) = delete;
    virtual ~TranscriptLayout() = default;

    /// Ends with the first result of `DumpSource::nameSpeaker` that is not KsNN_Success.
    virtual KsNN_ErrorCode write(const DumpSource& source, std::ostream& out) const = 0;
};

std::unique_ptr<TranscriptLayout> checkListing();
std::unique_ptr<TranscriptLayout> readableScript();
std::unique_ptr<TranscriptLayout> subtitleScript();
/// Null when there is no such layout.
std::unique_ptr<TranscriptLayout> createLayout(KsNNFileExportType type);

/// Speaker, time codes and text of every segment, which two layouts share.
KsNN_ErrorCode writeSpeakerBlocks(const DumpSource& source, std::ostream& out);

} // namespace kestrelml::detail
