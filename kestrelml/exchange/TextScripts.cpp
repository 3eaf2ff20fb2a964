#include "kestrelml/exchange/TranscriptLayout.h"

namespace kestrelml::detail {

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

KsNN_ErrorCode writeReadableScript(const DumpSource& source, std::ostream& out) {
    out << "Project: " << source.projectName << '\n';
    out << "Clip Name: " << source.entry.clipName << "\n\n";
    return writeSpeakerBlocks(source, out);
}

KsNN_ErrorCode writeSubtitleScript(const DumpSource& source, std::ostream& out) {
    out << "@ Project: " << source.projectName << '\n';
    out << "@ Clip Name: " << source.entry.clipName << "\n\n";
    out << "<begin subtitles>\n\n";
    for (std::size_t i = 0; i < source.entry.segments.size(); ++i) {
        out << source.timecodes[i].start << " " << source.timecodes[i].end << '\n';
        out << source.entry.segments[i].transcript << "\n\n";
    }
    out << "<end subtitles>\n\n";
    return KsNN_Success;
}

} // namespace kestrelml::detail
