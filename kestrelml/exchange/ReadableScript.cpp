#include "kestrelml/exchange/TranscriptLayout.h"

namespace kestrelml::detail {
namespace {

/// Text to read, with speakers and time codes.
class ReadableScript : public TranscriptLayout {
public:
    KsNN_ErrorCode write(const DumpSource& source, std::ostream& out) const override {
        out << "Project: " << source.projectName << '\n';
        out << "Clip Name: " << source.entry.clipName << "\n\n";
        return writeSpeakerBlocks(source, out);
    }
};

} // namespace

KsNN_ErrorCode writeSpeakerBlocks(const DumpSource& source, std::ostream& out) {
    for (std::size_t i = 0; i < source.entry.segments.size(); ++i) {
        const KsNNDBEntrySeg& seg = source.entry.segments[i];
        std::string label = "Speaker " + seg.speakerID;
        if (const auto code = source.nameSpeaker(seg, label)) return code;
        out << label << ":\n";
        out << source.timecodes[i].start << " - " << source.timecodes[i].end << '\n';
        out << seg.transcript << "\n\n";
    }
    return KsNN_Success;
}

std::unique_ptr<TranscriptLayout> readableScript() {
    return std::make_unique<ReadableScript>();
}

} // namespace kestrelml::detail
